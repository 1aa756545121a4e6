#pragma once

#include "lab/material/MaterialRequest.h"
#include "lab/material/OpenMaterial.h"
#include "tools/worker/Channel.h"

namespace worker {

// A record as stored in its source, every signal at its own rate, with its annotations.
class RecordAnswer {
  public:
    explicit RecordAnswer(const lab::MaterialRequest& request);

    nlohmann::json Head() const;

    // The samples of each signal, then those of each lead that is fed, if signals of several rates
    // had to be resampled to one. Valid as long as this object exists.
    std::vector<Piece> Pieces() const;

  private:
    void ReadSignals();
    void ReadLeads();
    bool HasOneRate(const std::vector<std::size_t>& signals) const;

    lab::OpenedMaterial m_opened;
    std::vector<lab::SourceAnnotation> m_annotations;
    lab::Samples m_signals;
    lab::Samples m_leads; // in the order of Record::FeedingSignals
    lab::Rate m_rate;
};

} // namespace worker
