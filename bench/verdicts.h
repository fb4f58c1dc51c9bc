// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <string>
#include <vector>

namespace ardv::bench {

/** Holds what was measured of the daemon and of its tool against the aims, all of which stand in verdicts.cpp. */
class Verdicts {
public:
    /** @param name one of the table of aims */
    void Judge(const std::string& name, double value);

    /** A line for each that was judged. */
    void Print() const;

    /** Whether one is beyond its aim. */
    bool HasMissed() const;

private:
    struct Verdict {
        std::string name;
        double value;
        double aim;
    };

    std::vector<Verdict> verdicts_;
};

/** The one in the middle. `values` is not empty. */
template <typename Value>
Value Median(std::vector<Value> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

}  // namespace ardv::bench
