// Compares the volume with the platform's calls that it must make. Options: --csv FILE, --memory, and those of Google Benchmark.
#include <cstring>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "Memory.h"
#include "Rows.h"

int main(int argc, char** argv) {
    std::string csvPath;
    std::vector<char*> others;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--memory") == 0)
            return PrintMemoryPeaks();
        if (std::strcmp(argv[i], "--csv") == 0 && i + 1 < argc)
            csvPath = argv[++i];
        else
            others.push_back(argv[i]);
    }
    int otherCount = static_cast<int>(others.size());
    benchmark::Initialize(&otherCount, others.data());
    if (benchmark::ReportUnrecognizedArguments(otherCount, others.data()))
        return 1;
    RunRows({TransfersAtRisingOffsets(), ReadsAtRandomOffsets(), OpeningPlain(), OpeningEncrypted(), Finding(), ListingPlain(),
             ListingWarm(), ListingCold(), FirstRead(), CloseOfAChange(), ContainersAlone(), SecondRead(), Locking(), TracingNothing(),
             TwoThreads(), CompanionAlone()},
            csvPath);
    return 0;
}
