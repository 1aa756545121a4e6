#include "lab/serve/BrowsingStage.h"

#include <chrono>

namespace lab::serve {
namespace {

std::chrono::steady_clock::time_point Deadline() {
    return std::chrono::steady_clock::now() + std::chrono::seconds(30);
}

} // namespace

HttpAnswer BrowsingStage::List(const std::string& under) {
    return m_browser.List(under, Deadline());
}

HttpAnswer BrowsingStage::Preview(const std::string& material, double start, double seconds) {
    return m_browser.Preview(material, start, seconds, Deadline());
}

HttpAnswer BrowsingStage::Overview(const std::string& material) {
    return m_browser.Overview(material, Deadline());
}

} // namespace lab::serve
