// A row of the table sets one work of the volume beside the calls that it must make. Both are measured by turns in one
// process, so that whatever else the machine does meets both; what is claimed are ratios alone.
#pragma once

#include <functional>
#include <string>
#include <vector>

// One side of a pair. Only `run` is timed; the others may be empty.
struct Side {
    std::function<void()> run;
    std::function<void()> before = {};
    std::function<void()> after = {};
};
struct Pair {
    Side raw;  // without `run`: the other side is measured alone
    Side volume;
};

struct Part {
    const char* name;  // empty when the row has no other part
    int pairs;         // how often each side is measured
    int batch;         // `run` is called so often for one measurement, and does so much
    std::function<Pair()> prepare;
    bool isAside = false;  // shown below the row, no part of its figures
};

enum class Figure {
    Ratio,           // volume to raw, over the sum of the parts
    AboveFixedCost,  // likewise of the last part, without what the first one costs the volume more
    Speedup,         // raw to volume: the same work by one thread and by two
    Alone,           // no ratio
};

struct Row {
    const char* work;
    const char* target;
    Figure figure;
    std::vector<Part> parts;
};

// Runs the rows as Google Benchmark does, with its options, and prints the table. When csvPath is given, stores there
// "work,raw_us,volume_us,ratio" of every row with a ratio.
void RunRows(const std::vector<Row>& rows, const std::string& csvPath);

// Ends the program with a message: a benchmark of calls that fail measures nothing.
void Must(bool condition, const char* what);
