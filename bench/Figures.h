#pragma once

#include <optional>
#include <string>
#include <vector>

namespace murmurly::bench {

// What a benchmark's median is held against: a goal in seconds and/or the benchmark that does
// the same work the plain way, whose median it is divided by.
struct Figure {
    std::string description;
    std::optional<double> goalSeconds;
    std::optional<std::string> reference;
};

void addFigure(const std::string& benchmark, Figure figure);
const Figure* figureFor(const std::string& benchmark);

// The value below which `share` (0 to 1) of the samples lie; 0 without samples.
double percentile(std::vector<double> samples, double share);

} // namespace murmurly::bench
