// The account's text, which scripts read.
#include "tools/virtual_glove/account.h"

#include <gtest/gtest.h>

#include <sstream>

namespace tarsil::virtual_glove {
namespace {

TEST(Account, is_written_as_one_name_and_value_per_line) {
  Account account;
  account.packets = 10;
  account.cycles = 14;
  account.cycles_lost = 3;
  account.bytes = 18446744073709551615U;
  account.hosts = 2;
  account.replugs = 4;
  account.damaged = 5;
  account.abandoned = 1;
  account.identities = 6;
  account.resets = 7;
  account.starts = 8;
  account.commands_ignored = 9;
  account.faults = {11, 12, 13, 14, 15, 16, 17, 18, 19, 20};
  std::ostringstream out;
  write_account(out, account);
  EXPECT_EQ(out.str(),
            "packets 10\n"
            "cycles 14\n"
            "cycles_lost 3\n"
            "bytes 18446744073709551615\n"
            "hosts 2\n"
            "replugs 4\n"
            "damaged 5\n"
            "abandoned 1\n"
            "identities 6\n"
            "resets 7\n"
            "starts 8\n"
            "commands_ignored 9\n"
            "fault.lost-cycles 11\n"
            "fault.lost-bytes 12\n"
            "fault.flipped-bits 13\n"
            "fault.garbage 14\n"
            "fault.splits 15\n"
            "fault.silence 16\n"
            "fault.hang 17\n"
            "fault.truncated-blocks 18\n"
            "fault.unknown-types 19\n"
            "fault.unknown-blocks 20\n");
}

}  // namespace
}  // namespace tarsil::virtual_glove
