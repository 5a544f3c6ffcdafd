// How much memory the volume and the companion library take at most, beside what was there before.
#pragma once

// Prints the process's peak working set after each of some works that grow. Returns the exit code.
int PrintMemoryPeaks();
