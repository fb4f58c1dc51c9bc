// SPDX-License-Identifier: Apache-2.0
// One client's connection, plain or TLS: the stream under the HTTP server, with what a misbehaving server needs.
#pragma once

#include <httplib.h>
#include <openssl/ssl.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

namespace ARDV::Sandbox {

/// A stream over one accepted socket. Used by one thread; only Abort() may be called from another one.
class Connection final : public httplib::Stream {
public:
    /// Takes over `socket`. `tls`: the server side's context, or nullptr for plain text; not owned, must outlive this.
    Connection(int socket, SSL_CTX* tls);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Closes the socket.
    ~Connection() override;

    /// Ends the connection in order (unless it was cut or aborted): tells the peer, and waits a second at most until it
    /// has read everything.
    void End();

    /// The connection that the calling thread serves, or nullptr.
    static Connection* Current();

    /// The TLS handshake; nothing to do on plain text. False when it failed or took longer than the time-out.
    bool Handshake();

    /// True on a TLS connection.
    bool IsTls() const { return tls_ != nullptr; }

    /// Allows `bytes` more to be read; past them every read fails.
    void AllowReading(size_t bytes) { readable_ = bytes; }

    /// Ends sending, the answer is complete: what the HTTP server still wants to write is dropped.
    void FinishSending() { isFinished_ = true; }

    /// As FinishSending(), and the connection will be closed without TLS's farewell, as when a server dies.
    void Cut();

    /// As Cut(), and the peer sees the connection reset.
    void Reset();

    /// How a wait ended.
    enum class WaitEnd { kTime, kPeerLeft, kWoken };

    /// Waits until the peer is gone or Abort() is called (kPeerLeft), or the descriptor `wake` is readable (kWoken),
    /// `limit` at most (kTime). Where several are so, the first of these.
    WaitEnd Wait(std::chrono::milliseconds limit, int wake) const;

    /// Waits until the peer is gone or Abort() is called, `limit` at most (nothing: for ever). True when it is gone.
    bool WaitUntilPeerLeaves(std::optional<std::chrono::milliseconds> limit) const;

    /// Breaks the connection at once; every blocked operation on it returns. From any thread.
    void Abort();

    /// True after Abort().
    bool IsAborted() const { return isAborted_; }

    bool is_readable() const override;
    bool is_writable() const override;
    ssize_t read(char* data, size_t size) override;
    ssize_t write(const char* data, size_t size) override;
    void get_remote_ip_and_port(std::string& address, int& port) const override;
    void get_local_ip_and_port(std::string& address, int& port) const override;
    socket_t socket() const override { return socket_; }

    // The base's conveniences, which the overrides above would hide.
    using httplib::Stream::write;

private:
    struct FreeTls {
        void operator()(SSL* tls) const { SSL_free(tls); }
    };

    bool Fill();
    void Linger() const;

    const int socket_;
    std::unique_ptr<SSL, FreeTls> tls_;
    std::string buffer_;
    size_t consumed_ = 0;
    size_t readable_ = 0;
    bool isFinished_ = false;
    bool isCut_ = false;
    bool isReset_ = false;
    std::atomic<bool> isAborted_{false};
};

/// The connections that are open, so that a server that stops can end them.
class ConnectionSet {
public:
    /// Adds `connection`. False when AbortAll() was called: the server is stopping.
    bool Add(Connection& connection);

    /// Forgets `connection`.
    void Remove(Connection& connection);

    /// Aborts every connection; no more can be added.
    void AbortAll();

private:
    std::mutex mutex_;
    std::set<Connection*> connections_;
    bool isClosed_ = false;
};

}  // namespace ARDV::Sandbox
