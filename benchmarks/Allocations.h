// Counts the heap allocations of the whole process, all threads and the library included.
#ifndef QUORVEL_BENCH_ALLOCATIONS_H
#define QUORVEL_BENCH_ALLOCATIONS_H

unsigned long long GetAllocations();

#endif
