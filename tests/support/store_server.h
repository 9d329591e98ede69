// The store web service played by a test: HTTP on 127.0.0.1 from a thread of its own, since the
// daemon's transfers block its loop. Every request gets the one reply the test chose.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct StoreRequest {
    std::string head, body; // head: request line and header lines, each ending in CRLF
};

struct StoreReply {
    int status = 200;
    // The body, a transfer-encoding chunk each; none for no body at all.
    std::vector<std::string> chunks;
};

class StoreServer {
  public:
    explicit StoreServer(StoreReply reply);
    // A reply chosen per request, from the server's thread.
    explicit StoreServer(std::function<StoreReply(const StoreRequest &)> respond);
    ~StoreServer();
    std::string url() const { return "http://127.0.0.1:" + std::to_string(m_port) + "/"; }
    std::vector<StoreRequest> requests();
    // A long-lived server (a fuzz target's) keeps no record of what it already answered.
    void forgetRequests();

  private:
    void serve();

    std::function<StoreReply(const StoreRequest &)> m_respond;
    int m_listener = -1;
    int m_port = 0;
    std::mutex m_mutex;
    std::vector<StoreRequest> m_requests;
    std::thread m_thread;
};
