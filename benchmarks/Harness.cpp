#include "Harness.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>

#include <benchmark/benchmark.h>

namespace {

struct Samples {
    std::vector<double> raw;  // microseconds for one call of a batch
    std::vector<double> volume;
};

// The ratio is the median of the single pairs' ratios: when the machine's speed changes between pairs, a ratio of the medians
// would measure the machine. The spread is half the distance between their quartiles, relative to the ratio.
struct Figures {
    double raw = 0;
    double volume = 0;
    double ratio = 0;
    double spread = 0;
};

double Quantile(std::vector<double> values, double part) {
    std::sort(values.begin(), values.end());
    const double place = part * static_cast<double>(values.size() - 1);
    const std::size_t below = static_cast<std::size_t>(place);
    const std::size_t above = std::min(below + 1, values.size() - 1);
    return values[below] + (values[above] - values[below]) * (place - static_cast<double>(below));
}

double MicrosecondsOf(const Side& side, int batch) {
    using Clock = std::chrono::steady_clock;
    if (side.before)
        side.before();
    const Clock::time_point start = Clock::now();
    for (int i = 0; i < batch; ++i)
        side.run();
    const std::chrono::duration<double, std::micro> taken = Clock::now() - start;
    if (side.after)
        side.after();
    return taken.count() / batch;
}

// Each side is first in every other pair.
void MeasurePart(benchmark::State& state, const Part& part, Samples& samples) {
    const Pair pair = part.prepare();
    bool isRawFirst = false;
    for (auto _ : state) {
        isRawFirst = !isRawFirst;
        for (const bool isRaw : {isRawFirst, !isRawFirst})
            if (const Side& side = isRaw ? pair.raw : pair.volume; side.run)
                (isRaw ? samples.raw : samples.volume).push_back(MicrosecondsOf(side, part.batch));
        state.SetIterationTime(samples.volume.back() / 1e6);
    }
}

Figures FiguresOf(const Samples& samples, bool isSpeedup) {
    Figures figures;
    figures.volume = Quantile(samples.volume, 0.5);
    std::vector<double> ratios = samples.volume;
    if (!samples.raw.empty()) {
        figures.raw = Quantile(samples.raw, 0.5);
        for (std::size_t i = 0; i < ratios.size(); ++i)
            ratios[i] = isSpeedup ? samples.raw[i] / ratios[i] : ratios[i] / samples.raw[i];
    }
    figures.ratio = Quantile(ratios, 0.5);
    figures.spread = (Quantile(ratios, 0.75) - Quantile(ratios, 0.25)) / 2 / figures.ratio;
    return figures;
}

Figures Combined(Figure figure, const std::vector<Figures>& parts) {
    Figures all = parts.back();
    if (parts.size() == 1)
        return all;
    double weighed = all.ratio * all.raw;
    for (auto part = parts.begin(); part != parts.end() - 1; ++part)
        if (figure == Figure::AboveFixedCost) {
            all.volume -= part->volume - part->raw;
            weighed -= part->ratio * part->raw - part->raw;
        } else {
            all.raw += part->raw;
            all.volume += part->volume;
            weighed += part->ratio * part->raw;
            all.spread = std::max(all.spread, part->spread);
        }
    all.ratio = weighed / all.raw;
    return all;
}

std::string Number(double value) {
    char text[32];
    std::snprintf(text, sizeof(text), value < 10 ? "%.3f" : value < 1000 ? "%.1f" : "%.0f", value);
    return text;
}

void PrintLine(const std::string& work, const Figures& figures, bool hasRaw, const char* target) {
    std::printf("| %s | %s | %s | %s | ±%.0f %% | %s |\n", work.c_str(), hasRaw ? Number(figures.raw).c_str() : "",
                Number(figures.volume).c_str(), hasRaw ? Number(figures.ratio).c_str() : "", figures.spread * 100, target);
}

std::string CsvField(const std::string& text) { return text.find(',') == text.npos ? text : '"' + text + '"'; }

std::string BenchmarkName(const Row& row, const Part& part) { return row.work + std::string(*part.name ? ": " : "") + part.name; }

// Prints the line of the row, if all of it was measured, and those of its parts, if it has several.
void PrintRow(const Row& row, const std::map<const Part*, Samples>& measured, std::ofstream& csv) {
    const bool hasRatio = row.figure != Figure::Alone;
    bool isComplete = hasRatio;
    std::vector<Figures> ofRow;
    std::vector<std::pair<const Part*, Figures>> lines;
    for (const Part& part : row.parts) {
        const auto found = measured.find(&part);
        if (found != measured.end())
            lines.emplace_back(&part, FiguresOf(found->second, row.figure == Figure::Speedup));
        if (found != measured.end() && !part.isAside)
            ofRow.push_back(lines.back().second);
        isComplete = isComplete && (found != measured.end() || part.isAside);
    }
    if (isComplete) {
        const Figures all = Combined(row.figure, ofRow);
        PrintLine(row.work, all, true, row.target);
        csv << CsvField(row.work) << ',' << all.raw << ',' << all.volume << ',' << all.ratio << '\n';
    }
    if (row.parts.size() > 1)
        for (const auto& [part, figures] : lines)
            PrintLine(hasRatio ? std::string("&nbsp;&nbsp;") + part->name : BenchmarkName(row, *part), figures, hasRatio, "");
}

// Prints what is being measured; the table is printed at the end.
class ProgressReporter final : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override { std::fprintf(stderr, "%s\n", runs.front().benchmark_name().c_str()); }
};

}  // namespace

void Must(bool condition, const char* what) {
    if (condition)
        return;
    std::fprintf(stderr, "This failed: %s\n", what);
    std::exit(1);
}

void RunRows(const std::vector<Row>& rows, const std::string& csvPath) {
    std::map<const Part*, Samples> measured;
    for (const Row& row : rows)
        for (const Part& part : row.parts)
            benchmark::RegisterBenchmark(BenchmarkName(row, part).c_str(),
                                         [&part, &measured](benchmark::State& state) { MeasurePart(state, part, measured[&part]); })
                ->Iterations(part.pairs)
                ->UseManualTime()
                ->Unit(benchmark::kMicrosecond);
    ProgressReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);

    std::ofstream csv;
    if (!csvPath.empty()) {
        csv.open(csvPath, std::ios::binary);
        Must(csv.is_open(), "writing the CSV file");
        csv << "work,raw_us,volume_us,ratio\n";
    }
    std::printf("| operation | raw median (us) | volume median (us) | ratio | spread | target |\n|---|---|---|---|---|---|\n");
    for (const Row& row : rows)
        PrintRow(row, measured, csv);
}
