// SPDX-License-Identifier: Apache-2.0
#include "held_wait.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace ARDV::Sandbox {

HeldWait::HeldWait(std::string serverIdOf, std::string channelOf)
    : serverId(std::move(serverIdOf)),
      channel(std::move(channelOf)),
      descriptor_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (descriptor_ < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

HeldWait::~HeldWait() {
    ::close(descriptor_);
}

void HeldWait::Wake() const {
    ::eventfd_write(descriptor_, 1);
}

void HeldWait::Settle() const {
    eventfd_t ignored = 0;
    ::eventfd_read(descriptor_, &ignored);
}

}  // namespace ARDV::Sandbox
