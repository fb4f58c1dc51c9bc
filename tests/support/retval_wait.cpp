// SPDX-License-Identifier: Apache-2.0
#include "retval_wait.h"

#include <cerrno>
#include <optional>

#include <libdaemon/dfork.h>

#include "real_function.h"

namespace ardv::test {

namespace {

struct Cut {
    int expected;
    int seconds;
};

std::optional<Cut> cut;

}  // namespace

CutWait::CutWait(int expected, int seconds) {
    cut = Cut{expected, seconds};
}

CutWait::~CutWait() {
    cut.reset();
}

}  // namespace ardv::test

extern "C" int daemon_retval_wait(int timeout) {
    static const auto real = ardv::test::RealFunction<int (*)(int)>("daemon_retval_wait");
    if (!ardv::test::cut) {
        return real(timeout);
    }
    if (timeout != ardv::test::cut->expected) {
        errno = EINVAL;
        return -1;
    }
    return real(ardv::test::cut->seconds);
}
