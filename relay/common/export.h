// SPDX-License-Identifier: Apache-2.0
#pragma once

/** Marks what libardvrelayd shows to its users; everything else in the library is hidden. */
#define ARDVRELAYD_API __attribute__((visibility("default")))
