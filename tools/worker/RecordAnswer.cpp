#include "tools/worker/RecordAnswer.h"

#include "lab/common/Text.h"
#include "lab/material/Annotations.h"
#include "lab/material/LeadStream.h"

#include <algorithm>

namespace worker {
namespace {

using nlohmann::json;

void Append(lab::Samples& rows, const lab::Samples& block) {
    for (std::size_t i = 0; i < rows.size(); ++i) {
        rows[i].insert(rows[i].end(), block[i].begin(), block[i].end());
    }
}

void AddPieces(std::vector<Piece>& pieces, const lab::Samples& rows) {
    for (const std::vector<double>& row : rows) {
        pieces.push_back({row.data(), row.size() * sizeof(double)});
    }
}

json Described(const lab::SourceAnnotation& annotation) {
    return {{"time", annotation.seconds},
            {"sample", annotation.sample},
            {"code", annotation.code},
            {"subtype", annotation.subtype},
            {"channel", annotation.channel},
            {"number", annotation.number},
            {"text", lab::ToUtf8(annotation.text)}};
}

json Described(const lab::SourceSignal& signal, const lab::Signal& mapped, std::size_t samples) {
    const bool isMapped = mapped.lead != ECG_LEAD_NONE;
    return {{"description", lab::ToUtf8(signal.description)},
            {"lead", isMapped ? json(lab::LeadName(mapped.lead)) : json()},
            {"unit", signal.isVoltage ? "mV" : lab::ToUtf8(signal.unit)},
            {"rate", signal.rate.PerSecond()},
            {"samples", samples}};
}

} // namespace

RecordAnswer::RecordAnswer(const lab::MaterialRequest& request)
    : m_opened(lab::OpenMaterial(request)), m_annotations(lab::ReadAnnotations(m_opened)) {
    ReadSignals();
    ReadLeads();
}

void RecordAnswer::ReadSignals() {
    std::vector<std::size_t> all(m_opened.record.signals.size());
    for (std::size_t i = 0; i < all.size(); ++i) {
        all[i] = i;
    }
    m_signals.resize(all.size());
    lab::Samples block;
    for (m_opened.reader->Begin(all); m_opened.reader->Read(block);) {
        Append(m_signals, block);
    }
}

bool RecordAnswer::HasOneRate(const std::vector<std::size_t>& signals) const {
    const auto& sources = m_opened.reader->Record().signals;
    return std::all_of(signals.begin(), signals.end(),
                       [&](std::size_t i) { return sources[i].rate == sources[signals[0]].rate; });
}

void RecordAnswer::ReadLeads() {
    const auto signals = m_opened.record.FeedingSignals();
    const auto& sources = m_opened.reader->Record().signals;
    m_rate = sources.empty() ? lab::Rate{1, 1} : sources[0].rate;
    for (const std::size_t i : signals) {
        m_rate = m_rate < sources[i].rate || i == signals[0] ? sources[i].rate : m_rate;
    }
    if (signals.empty() || HasOneRate(signals)) {
        return;
    }
    lab::LeadStream stream(*m_opened.reader, signals, m_rate, lab::Missing::kHold);
    m_leads.resize(signals.size());
    lab::Samples block;
    for (stream.Begin(); stream.Read(block);) {
        Append(m_leads, block);
    }
}

json RecordAnswer::Head() const {
    const lab::Record& record = m_opened.record;
    json signals = json::array();
    for (std::size_t i = 0; i < m_signals.size(); ++i) {
        signals.push_back(Described(m_opened.reader->Record().signals[i], record.signals[i],
                                    m_signals[i].size()));
    }
    json annotations = json::array();
    for (const lab::SourceAnnotation& annotation : m_annotations) {
        annotations.push_back(Described(annotation));
    }
    return {{"name", record.name},
            {"rate", m_rate.PerSecond()},
            {"source", record.origin},
            {"files", record.files},
            {"date", record.date},
            {"signals", signals},
            {"feeding", record.FeedingSignals()},
            {"leadFrames", m_leads.empty() ? json() : json(m_leads[0].size())},
            {"annotations", annotations},
            {"warnings", record.warnings}};
}

std::vector<Piece> RecordAnswer::Pieces() const {
    std::vector<Piece> pieces;
    AddPieces(pieces, m_signals);
    AddPieces(pieces, m_leads);
    return pieces;
}

} // namespace worker
