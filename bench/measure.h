// What the benchmarks measure beside time: memory, and how much of the time is the disk's.
#ifndef BENCH_MEASURE_H_
#define BENCH_MEASURE_H_

// Seconds that this process has spent in fsync() and fdatasync().
double SyncSeconds();

// The resident set of this process in MB: now, after what is unused was given back, and its largest
// since the last ResetPeak().
double ResidentMegabytes();
double PeakMegabytes();
void ResetPeak();

#endif  // BENCH_MEASURE_H_
