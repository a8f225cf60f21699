// Which system and library calls go wrong, when and how. Shared by the library that is preloaded into the
// built tool and by tests that have the calls replaced in their own program. Nothing here allocates:
// allocation is one of the calls.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarsil::test::faults {

enum class Call : std::uint8_t {
  open,     ///< open, open64, openat, openat64
  opendir,  ///< opendir, fdopendir
  readdir,  ///< readdir, readdir64
  tcgetattr,
  tcsetattr,
  cfsetispeed,
  cfsetospeed,
  ioctl,
  read,
  write,
  poll,    ///< poll, ppoll
  close,   ///< which closes, and then says that it could not
  thread,  ///< pthread_create
  memory,  ///< operator new
};

/// How a call goes.
struct Outcome {
  /// Fails with this, unless it is 0.
  int error = 0;
  /// Of the bytes that it was asked to move, it moves 1 in `divisor`, and no more than `most`.
  std::size_t divisor = 1;
  std::size_t most = SIZE_MAX;

  [[nodiscard]] std::size_t of(std::size_t count) const;
};

/// Most rules at a time.
inline constexpr std::size_t kMaxRules = 8;

/// Takes rules from now on, separated by blanks, each
///
///   CALL[@TARGET]:FIRST:FAULT[:TIMES[:PERIOD]]
///
/// where TARGET is a path, or a descriptor's number; only calls that name that path, or are made on a
/// descriptor that was opened by it, count. From the FIRST such call on (from 1), TIMES calls (1 unless
/// given; 0 for all) meet the fault, and again with every PERIOD calls if that is given. FAULT is an error's
/// name (EIO), or for reads and writes one of: ONE (one byte is moved), HALF (of the bytes), NONE.
///
/// Calls count if they are made by this thread, or by threads that such threads start. False if the text is
/// not understood.
[[nodiscard]] bool arm(const char* text);
/// As `arm`, for the calls of all threads.
[[nodiscard]] bool arm_for_all_threads(const char* text);
void disarm();
/// No call fails any more, but those of this thread and its threads still count.
void disarm_rules();

/// Of the rule with this index: how many calls it has seen, and how many of them met the fault.
[[nodiscard]] std::size_t calls(std::size_t rule);
[[nodiscard]] std::size_t hits(std::size_t rule);
[[nodiscard]] std::size_t rules();

/// Blocks that operator new has given since `arm` to the threads that count, and operator delete has not got
/// back.
[[nodiscard]] std::ptrdiff_t blocks();

// For the replaced calls.

[[nodiscard]] Outcome outcome(Call call);
[[nodiscard]] Outcome outcome(Call call, const char* path);
[[nodiscard]] Outcome outcome(Call call, int descriptor);
/// A descriptor has been opened by this path, or has been closed.
void opened(int descriptor, const char* path);
void closed(int descriptor);
/// Whether this thread's calls count; a thread gets that from the one that starts it.
[[nodiscard]] bool concerned();
void set_concerned(bool concerned);

void count_blocks(std::ptrdiff_t change);

}  // namespace tarsil::test::faults
