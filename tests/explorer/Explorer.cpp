#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "explorer/History.h"

int main(int argc, char** argv) {
    if (argc == 3 && std::string(argv[1]) == "--history") {
        const std::string text = argv[2];
        const std::size_t colon = text.find(':');
        for (const Start& start : Starts())
            if (start.name == text.substr(0, colon)) {
                std::vector<Step> steps;
                for (std::size_t at = colon; at < text.size();) {
                    const std::size_t end = std::min(text.find(';', at + 1), text.size());
                    const std::string word = text.substr(at + 2, end - at - 2);
                    const auto step = StepOfText(word);
                    if (!step) { std::printf("what is \"%s\"?\n", word.c_str()); return 2; }
                    steps.push_back(*step);
                    at = end;
                }
                const auto begin = std::chrono::steady_clock::now();
                Outcome outcome;
                for (int i = 0; i < 100; ++i) outcome = Run(start, steps);
                const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
                std::printf("%s\n%s%s\n%f ms each\n", TextOf(start, steps).c_str(), outcome.failure.c_str(), outcome.isRefused ? " (refused)" : "", ms / 100);
                return 0;
            }
    }
}
