// How far every finger is bent at its first joint, live: the shortest way from a glove to numbers.
//
//   live_angles [PORT]      without a port the glove is looked for
#include <exception>
#include <iomanip>
#include <iostream>

#include "tarsil/tarsil.h"

int main(int argc, char** argv) try {
  tarsil::SerialSource glove({.port = argc > 1 ? argv[1] : ""});
  // That a port cannot be opened is no exception: a source that reconnects has to expect it.
  if (!glove.is_open()) throw tarsil::DeviceNotFoundError("The port cannot be opened.");
  std::cout << std::fixed << std::setprecision(1);
  while (glove.is_open()) {
    const tarsil::Frame frame = glove.read_frame();
    // Four angles a finger, of which the second is the flexion of the first joint, in radians.
    for (std::size_t i = 1; i < frame.q.size(); i += 4) std::cout << std::setw(8) << frame.q[i] * 57.29578;
    std::cout << std::endl;
  }
} catch (const std::exception& error) {
  // No glove, or one that has been unplugged: the message is meant for people.
  std::cerr << error.what() << '\n';
  return 1;
}
