#pragma once

// Runs a benchmark program's rows and then prints each row again in monotonic clock reads
// measured in the same run (BM_MonotonicClockRead, which every program linking this file has), a
// figure that means the same on a fast or a slow machine. A row's figure is its time per span when
// it counts spans (a time_per_span counter), its process CPU time per operation when it runs
// threads or measures process time, else its wall time per iteration; the median when the run is
// repeated. Returns the program's exit status.
int QENRunBenchmarksWithClockReadSummary(int argc, char** argv);
