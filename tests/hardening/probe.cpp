// A copy whose size is not known before it is made, into a buffer whose size is.
#include <array>
#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
  std::array<char, 16> space{};
  for (int i = 0; i < argc; ++i) std::memcpy(space.data(), argv[i], std::strlen(argv[i]));
  return std::puts(space.data()) < 0 ? 1 : 0;
}
