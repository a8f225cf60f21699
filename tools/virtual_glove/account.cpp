// The account as text. Scripts read it, so names and order stay as they are.
#include "tools/virtual_glove/account.h"

#include <cstddef>

namespace tarsil::virtual_glove {

void write_account(std::ostream& out, const Account& account) {
  out << "packets " << account.packets << '\n'
      << "cycles " << account.cycles << '\n'
      << "cycles_lost " << account.cycles_lost << '\n'
      << "bytes " << account.bytes << '\n'
      << "hosts " << account.hosts << '\n'
      << "replugs " << account.replugs << '\n'
      << "damaged " << account.damaged << '\n'
      << "abandoned " << account.abandoned << '\n'
      << "identities " << account.identities << '\n'
      << "resets " << account.resets << '\n'
      << "starts " << account.starts << '\n'
      << "commands_ignored " << account.commands_ignored << '\n';
  for (std::size_t kind = 0; kind < kFaultKinds; ++kind) {
    out << "fault." << kFaultNames[kind] << ' ' << account.faults[kind] << '\n';
  }
}

}  // namespace tarsil::virtual_glove
