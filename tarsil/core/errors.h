// The errors that sources raise. Both carry a finished message for the user and nothing else.
#pragma once

#include <stdexcept>

namespace tarsil {

/// Raised by IDataSource::read_frame when the source has been closed or has stopped and has nothing left to
/// give.
class StreamUnderrunError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Raised when no glove is found, none matches what was asked for, or none answers in time.
class DeviceNotFoundError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace tarsil
