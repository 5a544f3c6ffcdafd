// A row of the table compares one operation of the volume with the platform's calls that it must make. Both are measured by turns in
// one process, so that whatever else the machine does affects both; only the ratios mean something.
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
    Side raw;  // without `run`, only the other side is measured
    Side volume;
};

struct Part {
    const char* name;  // empty when it is the row's only part
    int pairs;         // how often each side is measured
    int batch;         // how often `run` is called for one measurement
    std::function<Pair()> prepare;
    bool isAside = false;  // shown below the row, but not part of its figures
};

enum class Figure {
    Ratio,           // volume to raw, over the sum of the parts
    AboveFixedCost,  // volume to raw for the last part, without the additional cost of the volume in the first part
    Speedup,         // raw to volume: the same reads by one thread and by two
    Alone,           // no ratio
};

struct Row {
    const char* work;
    const char* target;
    Figure figure;
    std::vector<Part> parts;
};

// Runs the rows with Google Benchmark and its options, and prints the table. When csvPath is given, stores there
// "work,raw_us,volume_us,ratio" for every row with a ratio.
void RunRows(const std::vector<Row>& rows, const std::string& csvPath);

// Unless condition is true, ends the program with a message: a benchmark of failing calls measures nothing.
void Must(bool condition, const char* what);
