/* SPDX-License-Identifier: Apache-2.0 */
/* To be loaded into a program: the clock of a machine that has just lost it. */
#include <time.h>

time_t time(time_t* result) {
    const time_t justStarted = 60;
    if (result) {
        *result = justStarted;
    }
    return justStarted;
}
