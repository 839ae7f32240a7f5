// The kill test, many rounds: a child reporting through a spooled reporter is killed with SIGKILL
// at a random moment and a fresh reporter drains its spool. Prints the figures of all rounds.
//
//   QENSpoolKillStress [ROUNDS]   (500 by default)
#include <cstdio>
#include <cstdlib>

#include "Support/QENSpoolKillRound.h"

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 500;
  char pattern[] = "/tmp/qen-spool-stress-XXXXXX";
  const std::filesystem::path folder = ::mkdtemp(pattern);
  std::mt19937_64 random(std::random_device{}());
  QENKillRoundFigures total;
  int intact = 0;
  int failedRounds = 0;
  for (int round = 0; round < rounds; ++round) {
    const QENKillRoundFigures figures = runSpanKillRound(folder, random);
    total.persistedBeforeKill += figures.persistedBeforeKill;
    total.missing += figures.missing;
    total.duplicates += figures.duplicates;
    total.drainRetried += figures.drainRetried;
    total.drainDelivered += figures.drainDelivered;
    intact += figures.intact ? 1 : 0;
    failedRounds +=
        figures.missing > 0 || figures.duplicates > figures.drainRetried || !figures.intact ? 1 : 0;
  }
  std::filesystem::remove_all(folder);
  std::printf(
      "%d rounds: %llu spans persisted before the kills, %llu of them missing; %llu delivered by "
      "the restarted reporters, %llu of them sent again after an earlier attempt; %llu duplicates "
      "at the collector; integrity_check ok in %d rounds; %d rounds failed\n",
      rounds, static_cast<unsigned long long>(total.persistedBeforeKill),
      static_cast<unsigned long long>(total.missing),
      static_cast<unsigned long long>(total.drainDelivered),
      static_cast<unsigned long long>(total.drainRetried),
      static_cast<unsigned long long>(total.duplicates), intact, failedRounds);
  return failedRounds == 0 ? 0 : 1;
}
