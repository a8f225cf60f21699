// The tool's way to its standard streams: whole texts, written at once, in every locale the same.
//
// Gloves, recordings and servers put words into these texts. On a terminal, such words must not move the
// cursor, set the title or answer in the user's name, so control characters are shown there in a visible
// form. Pipes and files get every byte as it is.
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

/// The same for text of the tool's own that moves the cursor, and holds nothing from outside but numbers.
void write_screen(std::string_view text);

/// Writes `text` to standard error, also when there is no memory left. If that fails there is nobody to tell.
void write_error(std::string_view text);

}  // namespace tarsil::cli
