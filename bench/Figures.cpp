#include "Figures.h"

#include <algorithm>

#include <map>

namespace murmurly::bench {

namespace {

std::map<std::string, Figure>& figures() {
    static std::map<std::string, Figure> table;
    return table;
}

} // namespace

void addFigure(const std::string& benchmark, Figure figure) {
    figures()[benchmark] = std::move(figure);
}

const Figure* figureFor(const std::string& benchmark) {
    const auto it = figures().find(benchmark);
    return it == figures().end() ? nullptr : &it->second;
}

double percentile(std::vector<double> samples, double share) {
    if (samples.empty()) return 0;
    std::sort(samples.begin(), samples.end());
    const auto index = static_cast<std::size_t>(share * static_cast<double>(samples.size() - 1) + 0.5);
    return samples[std::min(index, samples.size() - 1)];
}

} // namespace murmurly::bench
