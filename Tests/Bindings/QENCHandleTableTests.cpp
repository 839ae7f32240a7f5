#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include "QENCHandleTable.h"

namespace {

using Kind = QENCHandleKind;
constexpr std::uint64_t kGeneration = std::uint64_t{1} << 32;  // an id's high half

// Threads make, use and release their own objects while others look up every id they can see,
// stale ones included, and forge the ids of the slots' next generations: whatever a lookup finds
// is alive until it lets go, and no forged id releases anything.
TEST(CHandleTable, LookupsRacingReleasesNeverSeeAFreedObject) {
  auto& table = QENCHandleTable::shared();
  std::array<std::atomic<std::uint64_t>, 64> published{};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, thread] {
      for (int round = 0; round < 20000; ++round) {
        auto& place = published[static_cast<std::size_t>((round * 4 + thread) % 64)];
        const std::uint64_t id = table.insert(Kind::kSpool, std::make_shared<int>(round));
        place.store(id);
        for (const auto& other : published) {
          const std::uint64_t seen = other.load();
          for (const std::uint64_t next : {seen, seen + kGeneration, seen + 2 * kGeneration}) {
            if (const auto pinned = table.find(next, Kind::kSpool)) {
              ASSERT_GE(*static_cast<int*>(pinned.object()), 0);
            }
          }
          table.remove(seen + kGeneration, Kind::kSpool);
        }
        EXPECT_TRUE(table.remove(id, Kind::kSpool));
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(table.count(Kind::kSpool), 0u);
}

}  // namespace

struct QENCHandleTableTestAccess {
  // The id the object in `id`'s slot would have in the slot's last generation, now given to it.
  static std::uint64_t moveToLastGeneration(std::uint64_t id) {
    auto& table = QENCHandleTable::shared();
    auto& state = table.slotAt(static_cast<std::uint32_t>((id & 0xFFFFFFFF) - 1))->state;
    state.store(std::uint64_t{0xFFFFFFFF} << 32);
    return (std::uint64_t{0xFFFFFFFF} << 32) | (id & 0xFFFFFFFF);
  }
};

namespace {

// A slot released in its last generation never takes an object again, so none of its ids, from
// its first on, ever finds one.
TEST(CHandleTable, ASlotWhoseGenerationWouldWrapIsRetired) {
  auto& table = QENCHandleTable::shared();
  const std::uint64_t first = table.insert(Kind::kTrace, std::make_shared<int>(1));
  const std::uint64_t last = QENCHandleTableTestAccess::moveToLastGeneration(first);
  ASSERT_TRUE(table.find(last, Kind::kTrace));
  EXPECT_TRUE(table.remove(last, Kind::kTrace));
  // Free slots are taken last freed first: had it not been retired, the next object would get it.
  const std::uint64_t next = table.insert(Kind::kTrace, std::make_shared<int>(2));
  EXPECT_NE(next & 0xFFFFFFFF, first & 0xFFFFFFFF);
  EXPECT_FALSE(table.find(first, Kind::kTrace));
  table.remove(next, Kind::kTrace);
}

}  // namespace
