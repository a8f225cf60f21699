// A real glove as a source of frames.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tarsil/core/data_source.h"

namespace tarsil {

/// How to reach a glove.
struct SerialConfig {
  /// Device path; empty: the port is detected.
  std::string port = {};
  /// Line speed in bit/s. A rate that serial lines do not have selects 115200.
  std::int32_t baud = 2000000;
  /// Most frames held for the consumer. Of 0 or less, one fresh frame is held and no stale one.
  std::int32_t queue_depth = 4096;
  /// How long construction waits for the first frame, milliseconds.
  std::int32_t timeout_ms = 5000;
};

/// Reads a glove on a serial port with a thread of its own. One thread at a time calls read_frame();
/// everything else may be called from any thread.
///
/// When the consumer is too slow, the oldest frames are dropped in favour of fresh ones; repetitions of a
/// silent glove never push out real data. A source that has stopped (closed, unplugged, silent for 1.5 s)
/// stays stopped; frames that it had received can still be read.
class SerialSource : public IDataSource {
 public:
  /// Opens the port, starts the glove and waits for its first frame.
  /// Throws DeviceNotFoundError if no port is found or no frame arrives in time. A port that cannot be opened
  /// or set up is deliberately no error: the source is not open then.
  explicit SerialSource(SerialConfig config);
  SerialSource(const SerialSource&) = delete;
  SerialSource& operator=(const SerialSource&) = delete;
  ~SerialSource() override;

  /// The oldest frame in the queue; waits for one without a time limit.
  /// Throws StreamUnderrunError ("SerialSource stream closed") once the source has stopped and the queue is
  /// empty.
  Frame read_frame() override;
  /// Serial and firmware are the glove's own from the first frame on; before, the serial is made from the
  /// port's name.
  [[nodiscard]] DeviceInfo device_info() const override;
  [[nodiscard]] bool is_open() const override;
  /// Stops the reader and joins it: within about a tenth of a second.
  void close() override;

  /// Hardware cycles lost on the way from the glove since construction, by the glove's own counter.
  [[nodiscard]] std::uint64_t dropped_cycles() const;

 private:
  class Reader;
  std::unique_ptr<Reader> reader_;
};

}  // namespace tarsil
