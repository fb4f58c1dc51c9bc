// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace ardv::ctl {

/** The first row of a table that fits; null if none does. */
template <typename Row, std::size_t kCount, typename Fits>
const Row* FindRow(const Row (&table)[kCount], Fits fits) {
    const auto* row = std::find_if(std::begin(table), std::end(table), fits);
    return row == std::end(table) ? nullptr : row;
}

}  // namespace ardv::ctl
