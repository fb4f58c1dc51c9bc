// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

namespace ardv::test {

/** Owns a descriptor; a negative number is none. */
class Handle {
public:
    explicit Handle(int number) : number_(number) {}
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() {
        if (number_ >= 0) {
            ::close(number_);
        }
    }
    int Number() const { return number_; }

private:
    int number_;
};

}  // namespace ardv::test
