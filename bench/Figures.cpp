#include "Figures.h"

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

} // namespace murmurly::bench
