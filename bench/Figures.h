#pragma once

#include <optional>
#include <string>

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

} // namespace murmurly::bench
