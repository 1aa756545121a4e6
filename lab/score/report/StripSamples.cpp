#include "lab/score/report/StripSamples.h"

#include "lab/common/Failure.h"
#include "lab/material/LoadedSamples.h"
#include "lab/material/LoadRecord.h"
#include "lab/score/HeaderRate.h"
#include "lab/score/InputFile.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

namespace lab::score {
namespace {

// The leads through which the signals are read; the traces carry the signals' real names.
constexpr std::array<std::size_t, 2> kCarriers = {0, 1};

} // namespace

StripSamples::StripSamples(const std::string& header) {
    std::error_code ignored;
    if (!std::filesystem::exists(header, ignored)) {
        m_remark = Printable(header) + " is missing, so strips show no signals";
        return;
    }
    try {
        Load(header);
    } catch (const Failure& failure) {
        m_record.reset();
        m_remark = std::string(failure.what()) + "\n      Strips show no signals.";
    }
}

void StripSamples::Load(const std::string& header) {
    MaterialRequest request;
    request.name = header;
    request.format = "wfdb";
    m_record = LoadRecord(request);
    request.map = {"0=I", "1=II"};
    request.map.resize(std::min(request.map.size(), m_record->signals.size()));
    m_record = LoadRecord(request);
    const double stated = ParseHeaderRate(ReadInput(header), header).ToDouble();
    const auto loaded = static_cast<double>(m_record->rate);
    m_rate = std::floor(stated) == loaded ? stated : loaded;
}

std::vector<Trace> StripSamples::Read(double from, double to) const {
    std::vector<Trace> traces;
    if (!m_record) {
        return traces;
    }
    for (std::size_t i = 0; i < std::min(kCarriers.size(), m_record->signals.size()); ++i) {
        traces.push_back({m_record->signals[i].description, {}, {}});
    }
    // To the library, a second is a whole number of samples.
    const auto loaded = static_cast<double>(m_record->rate);
    const double start = std::max(0.0, std::floor(from * m_rate / loaded));
    if (start >= m_record->Seconds()) {
        return traces;
    }
    double sample = start * loaded;
    const auto length = static_cast<int>(std::ceil(to * m_rate / loaded) - start) + 1;
    ForEachSample(static_cast<int>(start), length, [&](const double* leads) {
        const double second = sample / m_rate;
        sample += 1.0;
        if (second < from || second > to) {
            return;
        }
        for (std::size_t i = 0; i < traces.size(); ++i) {
            traces[i].seconds.push_back(second);
            traces[i].millivolts.push_back(leads[kCarriers[i]]);
        }
    });
    return traces;
}

} // namespace lab::score
