#pragma once

#include "lab/serve/MaterialWorker.h"
#include "lab/serve/Stage.h"

#include <string>

namespace lab::serve {

// A stage whose clients browse the material of a folder.
class BrowsingStage : public Stage {
  public:
    HttpAnswer List(const std::string& under) override;
    HttpAnswer Preview(const std::string& material, double start, double seconds) override;
    HttpAnswer Overview(const std::string& material) override;
    void StopBrowsing() override { m_browser.Stop(); }

  protected:
    explicit BrowsingStage(const std::string& folder) : m_browser(folder) {}
    ~BrowsingStage() override = default;

  private:
    MaterialWorker m_browser;
};

} // namespace lab::serve
