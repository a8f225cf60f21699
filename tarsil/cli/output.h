// The tool's way to its standard streams: whole texts, written at once, in every locale the same.
#pragma once

#include <string_view>

namespace tarsil::cli {

/// Opens what the shell has closed of the standard streams, in a way that reading or writing them fails.
/// Otherwise the next file or port that the tool opens would take their place, and texts would end up in a
/// recording or in a glove. To be called before anything is opened.
void occupy_standard_streams();

/// Writes `text` to standard output before it returns, in one go where the other end takes it in one go.
/// Throws std::runtime_error with a finished message if it cannot be written.
void write_output(std::string_view text);

/// Writes `text` to standard error. If that fails there is nobody left to tell.
void write_error(std::string_view text);

}  // namespace tarsil::cli
