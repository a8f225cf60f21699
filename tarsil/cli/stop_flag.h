// The one process-wide flag: somebody has asked the tool to stop.
#pragma once

namespace tarsil::cli {

/// From now on SIGINT and SIGTERM set the stop flag and do nothing else: the running command decides how to
/// finish.
void install_stop_signals();

/// Whether one of them has come. The flag is never reset.
[[nodiscard]] bool stop_requested();

}  // namespace tarsil::cli
