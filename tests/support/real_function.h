// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <dlfcn.h>

#include <cstring>
#include <stdexcept>
#include <string>

namespace ardv::test {

/** The function that this program has interposed, by its symbol. */
template <typename Function>
Function RealFunction(const char* symbol) {
    void* address = dlsym(RTLD_NEXT, symbol);
    if (!address) {
        throw std::logic_error(std::string("no real ") + symbol);
    }
    Function function = nullptr;
    std::memcpy(&function, &address, sizeof function);
    return function;
}

}  // namespace ardv::test
