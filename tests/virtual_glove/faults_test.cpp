// Each fault's effect on a packet, over many seeds.
#include "tools/virtual_glove/faults.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <set>

#include "tests/virtual_glove/host.h"

namespace tarsil::virtual_glove {
namespace {

constexpr std::uint64_t kSeeds = 500;
constexpr std::size_t kBlockCountOffset = 9;

Cycle some_cycle(std::uint16_t counter = 77) {
  return {kLeftSideCode, counter, hand_blocks(HandMotion(1, 200).at(counter))};
}

Bytes whole_packet(const Cycle& cycle) {
  return encode_packet(cycle.side_code, kSensorPacketType, cycle.counter, encode_payload(cycle.blocks));
}

CycleFate struck_by(FaultKind kind, std::uint64_t seed, const Cycle& cycle = some_cycle()) {
  return FaultPlan({{.kind = kind, .rate = 1}}, seed).fate(cycle, 0);
}

Bytes joined(const std::vector<Bytes>& pieces) {
  Bytes all;
  for (const Bytes& piece : pieces) all.insert(all.end(), piece.begin(), piece.end());
  return all;
}

bool ends_with(const Bytes& bytes, const Bytes& end) {
  return bytes.size() >= end.size() && std::equal(end.rbegin(), end.rend(), bytes.rbegin());
}

FaultCounts only(FaultKind kind) {
  FaultCounts counts{};
  counts[static_cast<std::size_t>(kind)] = 1;
  return counts;
}

TEST(Faults, empty_plan_sends_the_packet_as_it_is) {
  const CycleFate fate = FaultPlan({}, 1).fate(some_cycle(), 0);
  EXPECT_EQ(fate.pieces, std::vector<Bytes>{whole_packet(some_cycle())});
  EXPECT_FALSE(fate.lost);
  EXPECT_FALSE(fate.damaged);
  EXPECT_FALSE(fate.hang);
  EXPECT_EQ(fate.silence_seconds, 0);
  EXPECT_EQ(fate.struck, FaultCounts{});
}

TEST(Faults, lost_cycle_sends_nothing_for_one_to_three_cycles) {
  std::set<int> lengths;
  for (std::uint64_t seed = 0; seed < kSeeds; ++seed) {
    FaultPlan plan({{.kind = FaultKind::lost_cycles, .at_seconds = 1}}, seed);
    EXPECT_FALSE(plan.fate(some_cycle(), 0.9).lost);
    CycleFate fate = plan.fate(some_cycle(), 1.0);
    EXPECT_EQ(fate.struck, only(FaultKind::lost_cycles));
    int lost = 0;
    for (; fate.lost; fate = plan.fate(some_cycle(), 1.1)) {
      EXPECT_TRUE(fate.pieces.empty());
      EXPECT_FALSE(fate.damaged);
      ++lost;
    }
    EXPECT_EQ(fate.pieces, std::vector<Bytes>{whole_packet(some_cycle())});
    lengths.insert(lost);
  }
  EXPECT_EQ(lengths, (std::set<int>{1, 2, 3}));
}

TEST(Faults, lost_bytes_are_one_run_missing_from_the_packet) {
  const Bytes whole = whole_packet(some_cycle());
  std::size_t most = 0;
  for (std::uint64_t seed = 0; seed < kSeeds; ++seed) {
    const CycleFate fate = struck_by(FaultKind::lost_bytes, seed);
    ASSERT_EQ(fate.pieces.size(), 1U);
    const Bytes& rest = fate.pieces.front();
    ASSERT_LT(rest.size(), whole.size());
    ASSERT_GE(rest.size() + 100, whole.size());
    const auto gap = std::mismatch(rest.begin(), rest.end(), whole.begin());
    EXPECT_TRUE(ends_with(whole, Bytes(gap.first, rest.end())));
    EXPECT_TRUE(fate.damaged);
    EXPECT_EQ(fate.struck, only(FaultKind::lost_bytes));
    most = std::max(most, whole.size() - rest.size());
  }
  EXPECT_GT(most, 90U);
}

TEST(Faults, flipped_bits_are_one_to_three_anywhere) {
  const Bytes whole = whole_packet(some_cycle());
  std::set<int> counts;
  std::set<std::size_t> places;
  for (std::uint64_t seed = 0; seed < kSeeds; ++seed) {
    const CycleFate fate = struck_by(FaultKind::flipped_bits, seed);
    const Bytes sent = joined(fate.pieces);
    ASSERT_EQ(sent.size(), whole.size());
    int flipped = 0;
    for (std::size_t at = 0; at < whole.size(); ++at) {
      const int here = std::popcount(static_cast<unsigned>(sent[at] ^ whole[at]));
      if (here > 0) places.insert(at);
      flipped += here;
    }
    counts.insert(flipped);
    EXPECT_TRUE(fate.damaged);
  }
  EXPECT_EQ(counts, (std::set<int>{1, 2, 3}));
  EXPECT_LT(*places.begin(), 20U);
  EXPECT_GT(*places.rbegin(), 435U);
}

TEST(Faults, garbage_comes_before_the_packet_and_holds_no_magic) {
  const Bytes whole = whole_packet(some_cycle());
  std::size_t most = 0;
  for (std::uint64_t seed = 0; seed < kSeeds; ++seed) {
    const CycleFate fate = struck_by(FaultKind::garbage, seed);
    Bytes sent = joined(fate.pieces);
    ASSERT_TRUE(ends_with(sent, whole));
    sent.resize(sent.size() - whole.size());
    ASSERT_GE(sent.size(), 1U);
    ASSERT_LE(sent.size(), 600U);
    EXPECT_THAT(sent, testing::Not(testing::Contains(0x01)));
    EXPECT_FALSE(fate.damaged);
    most = std::max(most, sent.size());
  }
  EXPECT_GT(most, 580U);
}

TEST(Faults, split_packet_comes_in_pieces_and_complete) {
  std::set<std::size_t> counts;
  for (std::uint64_t seed = 0; seed < kSeeds; ++seed) {
    const CycleFate fate = struck_by(FaultKind::splits, seed);
    EXPECT_EQ(joined(fate.pieces), whole_packet(some_cycle()));
    EXPECT_THAT(fate.pieces, testing::Each(testing::Not(testing::IsEmpty())));
    EXPECT_FALSE(fate.damaged);
    counts.insert(fate.pieces.size());
  }
  EXPECT_EQ(counts, (std::set<std::size_t>{2, 3, 4, 5}));
}

TEST(Faults, silence_and_hang_follow_a_whole_packet) {
  FaultPlan plan({{FaultKind::silence, 0, 2, 0.75}, {FaultKind::hang, 0, 3}}, 1);
  const CycleFate before = plan.fate(some_cycle(), 1.99);
  EXPECT_EQ(before.silence_seconds, 0);
  const CycleFate silent = plan.fate(some_cycle(), 2);
  EXPECT_EQ(silent.silence_seconds, 0.75);
  EXPECT_FALSE(silent.hang);
  EXPECT_EQ(joined(silent.pieces), whole_packet(some_cycle()));
  const CycleFate hanging = plan.fate(some_cycle(), 3);
  EXPECT_EQ(hanging.silence_seconds, 0);
  EXPECT_TRUE(hanging.hang);
  EXPECT_EQ(joined(hanging.pieces), whole_packet(some_cycle()));
}

TEST(Faults, truncated_packet_ends_inside_its_last_block_and_says_so) {
  const Bytes whole = whole_packet(some_cycle());
  std::set<std::size_t> sizes;
  for (std::uint64_t seed = 0; seed < kSeeds; ++seed) {
    const CycleFate fate = struck_by(FaultKind::truncated_blocks, seed);
    const Bytes sent = joined(fate.pieces);
    const std::vector<SeenPacket> packets = packets_in(sent);
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].payload.size() + 9, sent.size());
    // The last block has 31 bytes; 1 to 30 of them are left.
    ASSERT_LT(sent.size(), whole.size());
    ASSERT_GT(sent.size(), whole.size() - 31);
    EXPECT_TRUE(std::equal(sent.begin(), sent.begin() + 7, whole.begin()));
    EXPECT_TRUE(std::equal(sent.begin() + 9, sent.end(), whole.begin() + 9));
    EXPECT_EQ(sent[kBlockCountOffset], 15);
    EXPECT_TRUE(fate.damaged);
    sizes.insert(sent.size());
  }
  EXPECT_EQ(sizes.size(), 30U);
}

TEST(Faults, packet_of_another_type_comes_before_the_real_one) {
  const Bytes whole = whole_packet(some_cycle());
  for (std::uint64_t seed = 0; seed < kSeeds; ++seed) {
    const CycleFate fate = struck_by(FaultKind::unknown_types, seed);
    const Bytes sent = joined(fate.pieces);
    EXPECT_TRUE(ends_with(sent, whole));
    const std::vector<SeenPacket> packets = packets_in(sent);
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_GE(packets[0].type, 2);
    EXPECT_EQ(packets[0].side_code, kLeftSideCode);
    EXPECT_THAT(packets[0].payload, testing::Not(testing::Contains(0x01)));
    EXPECT_EQ(packets[0].payload.size() + 9 + whole.size(), sent.size());
    EXPECT_EQ(packets[1].type, 1);
    EXPECT_FALSE(fate.damaged);
  }
}

TEST(Faults, block_of_an_unknown_kind_comes_last_and_is_counted) {
  const Bytes whole = whole_packet(some_cycle());
  for (std::uint64_t seed = 0; seed < kSeeds; ++seed) {
    const CycleFate fate = struck_by(FaultKind::unknown_blocks, seed);
    const Bytes sent = joined(fate.pieces);
    ASSERT_EQ(packets_in(sent).size(), 1U);
    ASSERT_GE(sent.size(), whole.size() + 19);
    EXPECT_EQ(sent[kBlockCountOffset], 16);
    EXPECT_TRUE(std::equal(whole.begin() + 10, whole.end(), sent.begin() + 10));
    EXPECT_THAT(sent[whole.size()], testing::AllOf(testing::Ne(0x10), testing::Ne(0x20), testing::Ne(0x30)));
    EXPECT_FALSE(fate.damaged);
  }
}

TEST(Faults, truncated_packet_gets_no_unknown_block) {
  FaultPlan plan({{FaultKind::unknown_blocks, 1}, {FaultKind::truncated_blocks, 1}}, 1);
  EXPECT_EQ(plan.fate(some_cycle(), 0).struck, only(FaultKind::truncated_blocks));
}

TEST(Faults, same_seed_gives_the_same_faults_and_another_seed_others) {
  const std::vector<Fault> faults = {{FaultKind::lost_cycles, 0.1},
                                     {FaultKind::garbage, 0.3},
                                     {FaultKind::flipped_bits, 0.3},
                                     {FaultKind::splits, 0.3}};
  const auto sent = [&faults](std::uint64_t seed) {
    FaultPlan plan(faults, seed);
    std::vector<std::vector<Bytes>> all;
    for (std::uint16_t counter = 0; counter < 200; ++counter)
      all.push_back(plan.fate(some_cycle(counter), 0).pieces);
    return all;
  };
  EXPECT_EQ(sent(4), sent(4));
  EXPECT_NE(sent(4), sent(5));
}

TEST(Faults, rate_is_the_probability_per_cycle) {
  FaultPlan plan({{FaultKind::garbage, 0.25}}, 1);
  int struck = 0;
  for (int cycle = 0; cycle < 4000; ++cycle) {
    struck +=
        static_cast<int>(plan.fate(some_cycle(), 0).struck[static_cast<std::size_t>(FaultKind::garbage)]);
  }
  EXPECT_NEAR(struck, 1000, 150);
}

TEST(Faults, timed_fault_strikes_once_and_waits_for_a_cycle_that_is_sent) {
  FaultPlan plan({{FaultKind::lost_cycles, 0, 1}, {FaultKind::garbage, 0, 1}}, 3);
  int cycles_with_garbage = 0;
  for (int cycle = 0; cycle < 10; ++cycle) {
    const CycleFate fate = plan.fate(some_cycle(), 1);
    if (fate.struck[static_cast<std::size_t>(FaultKind::garbage)] == 0) continue;
    EXPECT_FALSE(fate.lost);
    ++cycles_with_garbage;
  }
  EXPECT_EQ(cycles_with_garbage, 1);
}

}  // namespace
}  // namespace tarsil::virtual_glove
