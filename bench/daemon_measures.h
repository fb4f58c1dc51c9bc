// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

#include "service_side.h"
#include "verdicts.h"

namespace ardv::bench {

/** The daemon with its wait held and its alias registered, left alone for `window`. */
void MeasureIdle(ServiceSide& side, std::chrono::seconds window, Verdicts& verdicts);

/** From the start of the process to its update at the alias server, beside inadyn. */
void MeasureStart(ServiceSide& side, int rounds, Verdicts& verdicts);

/** One "ardvrelayctl status" beside bare programs. */
void MeasureStatus(ServiceSide& side, int rounds, Verdicts& verdicts);

}  // namespace ardv::bench
