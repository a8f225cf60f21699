// The one interface between everything that makes frames and everything that takes them.
#pragma once

#include "tarsil/core/device_info.h"
#include "tarsil/core/frame.h"

namespace tarsil {

/// A producer of frames: a glove on a serial port, its reconnecting wrapper, a recording, the synthetic
/// source.
///
/// Sources are neither copied nor moved; they are held by std::shared_ptr<IDataSource>. One thread at a time
/// reads frames; close() may come from another one. A consumer reads for as long as is_open() is true.
class IDataSource {
 public:
  IDataSource() = default;
  IDataSource(const IDataSource&) = delete;
  IDataSource& operator=(const IDataSource&) = delete;
  /// Stops the source first if it still runs, and joins its threads.
  virtual ~IDataSource() = default;

  /// Blocks until the next frame is available and returns it.
  /// Throws StreamUnderrunError once the source is closed or has stopped and nothing is left.
  virtual Frame read_frame() = 0;
  /// Identity of the glove behind the source; callable at any time.
  [[nodiscard]] virtual DeviceInfo device_info() const = 0;
  /// True while the source can still deliver frames.
  [[nodiscard]] virtual bool is_open() const = 0;
  /// Stops the source. May be called more than once.
  virtual void close() = 0;
};

}  // namespace tarsil
