#include "tools/worker/Picture.h"

#include "lab/common/Failure.h"
#include "lab/material/LoadedSamples.h"
#include "lab/material/Staging.h"
#include "lab/paper/Picture.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>

namespace worker {
namespace {

using lab::kLeadCount;
using nlohmann::json;

constexpr double kRowLength = 250.0; // millimetres
constexpr double kLeastPage = 48.0;  // width in millimetres that four leads side by side need

lab::Curves SourceCurves(const lab::Record& record, int start, double seconds) {
    lab::Curves curves{record.rate, static_cast<double>(start), {}};
    lab::ForEachSample(start, static_cast<int>(std::ceil(seconds)), [&](const double* leads) {
        for (std::size_t i = 0; i < kLeadCount; ++i) {
            curves.leads[i].push_back(leads[i]);
        }
    });
    return curves;
}

std::size_t LeadNumber(const lab::Record& record, const std::string& name) {
    for (std::size_t i = 0; i < kLeadCount; ++i) {
        if (lab::LowerCase(name) == lab::LowerCase(lab::kLeadNames[i]) && record.supplied[i]) {
            return i;
        }
    }
    lab::Fail(lab::kUsage, "leads",
              "\"" + lab::Printable(name) + "\" is not a lead of this material.");
}

// The requested leads, otherwise all that the material has.
std::vector<std::size_t> LeadsToDraw(const lab::Record& record, const json& wanted) {
    std::vector<std::size_t> leads;
    for (const json& name : wanted.value("leads", json::array())) {
        leads.push_back(LeadNumber(record, name.get<std::string>()));
    }
    for (std::size_t i = 0; i < kLeadCount && !wanted.contains("leads"); ++i) {
        if (record.supplied[i]) {
            leads.push_back(i);
        }
    }
    return leads;
}

std::string LayoutOf(const json& wanted, std::size_t leads, double millimetres) {
    const bool isWhole = leads == kLeadCount && !wanted.contains("leads");
    const char* usual = !isWhole ? "strip" : millimetres >= kLeastPage ? "3x4" : "12x1";
    return wanted.value("layout", usual);
}

std::string BytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

lab::PictureOptions OptionsOf(const lab::Record& record, const json& wanted) {
    lab::PictureOptions options;
    options.speed = wanted.value("speed", 25.0);
    if (wanted.contains("gain")) {
        options.gain = wanted.at("gain").get<double>();
    }
    options.isStandIn = record.origin == "stand-in";
    options.isPaged = wanted.value("format", "png") == "pdf";
    return options;
}

} // namespace

std::string DrawnPicture(const lab::Record& record, int start, const json& wanted,
                         const std::optional<lab::Outputs>& outputs) {
    lab::RequirePlayable(record);
    lab::RequireStart(record, start);
    lab::PictureOptions options = OptionsOf(record, wanted);
    const double page = kRowLength / options.speed;
    const double seconds = std::min(wanted.value("seconds", page), record.Seconds() - start);
    const auto leads = LeadsToDraw(record, wanted);
    const lab::Layout layout = lab::ArrangeLeads(
        LayoutOf(wanted, leads.size(), seconds * options.speed), seconds, page, leads);

    const lab::TemporaryDirectory directory;
    options.path = directory.Path() + "/picture." + wanted.value("format", "png");
    options.start = start;
    options.seconds = seconds;
    std::optional<lab::Curves> decoded;
    if (outputs) {
        options.comparison = "outputs";
        decoded =
            lab::Curves{outputs->rate, static_cast<double>(start), lab::LeadsOf(*outputs, record)};
    }
    const std::string header = record.HeaderPath();
    lab::DrawPicture(options, record, layout, SourceCurves(record, start, seconds), decoded,
                     header.empty() ? std::vector<lab::Beat>{} : lab::ReadBeats(header, nullptr));
    return BytesOf(options.path);
}

} // namespace worker
