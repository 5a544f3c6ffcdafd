// The most memory that the volume and the companion library take.
#pragma once

// Prints the process's peak working set after each of several operations of growing size. Returns the exit code.
int PrintMemoryPeaks();
