// The measurements, each a Google Benchmark case that leaves its numbers in counters.
#ifndef QUORVEL_BENCH_CASES_H
#define QUORVEL_BENCH_CASES_H

// How much of everything.
struct SEffort {
    int nRounds = 25; // of every group; the groups' cases take turns, and the best round counts
    int nExchanges = 2000;
    int nOutstandingRounds = 7;
    int nLargeTransfers = 300;
    int nGateways = 200;
    int nIdleMilliSeconds = 2000;
};

constexpr int nFewOutstanding = 200;
constexpr int nManyOutstanding = 20000;
constexpr int nSmallTransfer = 8;
constexpr int nMediumTransfer = 1000;
constexpr int nLargeTransfer = 60000;

void RegisterCases(const SEffort& oEffort);

#endif
