// Makes the frames of an answer: carries back what every answer carries back, stamps the
// performance record, packs.
//
// One writer serves all sessions of a fleet, one request at a time: its package is over 10 MiB.
// On the loop only.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "protocol/ostrand_protocol_cs.h"

namespace OstrandFleet {

// Takes the frames.
class AnswerSink {
 public:
  // The bytes are valid during the call.
  virtual void OnAnswer(std::string_view frame) = 0;

 protected:
  ~AnswerSink() = default;
};

class AnswerWriter {
 public:
  AnswerWriter();

  // Begins the answer to a request, with a constructed body. Request and sink outlive the answer.
  // arrival_us: when the request came, wall clock; request_len: bytes of its frame.
  void Begin(const ostrand_protocol_cs::OStrandPkg& request, size_t request_len, int64_t arrival_us,
             AnswerSink& sink);

  // The package being made, to be filled.
  ostrand_protocol_cs::OStrandPkg& pkg() { return *m_pkg; }

  // Sends the package. With a result other than 0 its body is emptied first.
  void Emit(int32_t result);
  // Sends the package as one of several with more to follow, and begins the next.
  void EmitPart();

  // Begins a package of the proxy's own, which answers nothing, and sends it by Emit(0).
  void BeginOwn(uint32_t cmd, uint64_t asyn_id, AnswerSink& sink);

 private:
  void CarryBack();
  void StampPerformance();
  void Pack();

  const std::unique_ptr<ostrand_protocol_cs::OStrandPkg> m_pkg;
  const std::unique_ptr<char[]> m_frame;

  // Of the answer being made.
  const ostrand_protocol_cs::OStrandPkg* m_request = nullptr;
  size_t m_request_len = 0;
  int64_t m_arrival_us = 0;
  AnswerSink* m_sink = nullptr;
};

}  // namespace OstrandFleet
