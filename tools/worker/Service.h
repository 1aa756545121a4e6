#pragma once

#include "lab/common/Failure.h"
#include "lab/common/Interrupt.h"
#include "lab/session/Play.h"
#include "lab/session/Simulator.h"
#include "tools/worker/Channel.h"

#include <map>
#include <memory>
#include <string>

namespace worker {

// Carries requests out, one after the other, and answers each with its number and "result", or with
// "error" as on the command line. A long request sends events with its number before that.
class Service {
  public:
    // `outputs` is the common beginning of the paths of the records in which the emulated simulator
    // writes the frames that it receives; empty with a real one.
    Service(Channel& channel, const lab::Interrupt& interrupt, std::string outputs)
        : m_channel(channel), m_interrupt(interrupt), m_outputs(std::move(outputs)) {}

    void Answer(const Message& request);

  private:
    // The material that a request names or brings along, loaded.
    struct Material {
        lab::PlayRequest request;
        lab::Record record;
        std::map<std::string, double> clipped; // of samples; else empty
        bool isMade = false;
    };

    void Carry(const Message& request);
    void Reply(const Message& request, const nlohmann::json& result,
               const std::vector<Piece>& payload = {});
    void ReplyFailure(const Message& request, const lab::Failure& failure,
                      const nlohmann::json& played = nullptr);
    void Tell(const Message& request, nlohmann::json event);

    void Connect(const Message& request);
    void Play(const Message& request);
    void SendOutputs(const Message& request);
    void SendExpected(const Message& request);
    void SendPreview(const Message& request);
    void SendRecord(const Message& request);
    void SendPicture(const Message& request);

    void AwaitSimulator(const Message& request);
    Material Load(const Message& request) const;

    Channel& m_channel;
    const lab::Interrupt& m_interrupt;
    std::string m_outputs;
    lab::SimulatorChoice m_choice;
    std::unique_ptr<lab::Simulator> m_simulator;
};

} // namespace worker
