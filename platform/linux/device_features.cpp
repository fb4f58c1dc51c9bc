// SPDX-License-Identifier: Apache-2.0
#include <ardv/device_features.h>

#include <ardv/key_value_file.h>

namespace {

constexpr const char* kFactoryDefaults = "/etc.defaults/ardvinfo.conf";

}  // namespace

int ALIBCSupportGet(const char* feature) {
    return ALIBCFileCheckKeyValue(kFactoryDefaults, feature, "yes", 0);
}
