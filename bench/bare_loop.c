// SPDX-License-Identifier: Apache-2.0
// The floor of an idle daemon: a program that has loaded its libraries and waits for an event that never comes.
#include <sys/epoll.h>

int main(void) {
    struct epoll_event event;
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    return epoll_wait(epoll, &event, 1, -1);
}
