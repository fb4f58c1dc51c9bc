// SPDX-License-Identifier: Apache-2.0
// One listening port of a server: its threads, its connections and their limits.
#pragma once

#include <httplib.h>
#include <openssl/ssl.h>

#include <functional>
#include <string>
#include <thread>

#include "http/connection.h"

namespace ARDV::Sandbox {

/// An HTTP server on one port, plain or TLS, one request a connection. Handlers find their connection by
/// Connection::Current(). Set the routes between construction and Start().
class Listener final : public httplib::Server {
public:
    /// `tls`: the TLS context, or nullptr for plain HTTP; not owned, must outlive this.
    explicit Listener(SSL_CTX* tls);

    /// As Stop().
    ~Listener() override;

    /// Binds to the numeric `address` and `port` (0: any free one) and begins to queue connections. Success: the port.
    /// Failure: -1.
    int Open(const std::string& address, int port);

    /// Serves on threads of its own until Stop(). `onFailure` is called, from such a thread, if serving ends otherwise.
    void Start(std::function<void()> onFailure);

    /// Closes the port, breaks every connection and waits for the threads. Does nothing when not started.
    void Stop();

private:
    bool process_and_close_socket(socket_t socket) override;
    void Serve(Connection& connection);

    SSL_CTX* const tls_;
    ConnectionSet connections_;
    std::thread thread_;
};

}  // namespace ARDV::Sandbox
