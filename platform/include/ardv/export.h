// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Marks a function that a platform library offers to its callers.
///
/// The libraries are built with hidden symbols; what carries this mark, and nothing else, is visible outside. It is the
/// only macro of the platform headers.
#define ARDVPLATFORM_API __attribute__((visibility("default")))
