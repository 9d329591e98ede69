#include "store_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>

StoreServer::StoreServer(StoreReply reply)
    : StoreServer([reply](const StoreRequest &) { return reply; }) {}

StoreServer::StoreServer(std::function<StoreReply(const StoreRequest &)> respond)
    : m_respond(std::move(respond)) {
    m_listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    bind(m_listener, reinterpret_cast<sockaddr *>(&address), size);
    listen(m_listener, 8);
    getsockname(m_listener, reinterpret_cast<sockaddr *>(&address), &size);
    m_port = ntohs(address.sin_port);
    m_thread = std::thread(&StoreServer::serve, this);
}

StoreServer::~StoreServer() {
    shutdown(m_listener, SHUT_RDWR); // wakes the accept
    m_thread.join();
    close(m_listener);
}

std::vector<StoreRequest> StoreServer::requests() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests;
}

void StoreServer::forgetRequests() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_requests = {};
}

// Reads until `end` arrives at or after `from`; false when the connection closed first.
static bool receiveUntil(int fd, std::string &data, const char *end, size_t from = 0) {
    char buffer[4096];
    while (data.find(end, from) == std::string::npos) {
        ssize_t got = recv(fd, buffer, sizeof buffer, 0);
        if (got <= 0)
            return false;
        data.append(buffer, got);
    }
    return true;
}

// Without a post-field size the client sends its body in chunks, after a 100-continue.
static StoreRequest readRequest(int fd) {
    std::string data;
    if (!receiveUntil(fd, data, "\r\n\r\n"))
        return {data, ""};
    size_t at = data.find("\r\n\r\n") + 2;
    StoreRequest request = {data.substr(0, at), ""};
    if (request.head.find("\r\nExpect: 100-continue\r\n") != std::string::npos)
        send(fd, "HTTP/1.1 100 Continue\r\n\r\n", 25, MSG_NOSIGNAL);
    if (!receiveUntil(fd, data, "\r\n0\r\n\r\n", at))
        return request;
    for (size_t size; (size = strtoul(data.c_str() + at + 2, nullptr, 16)) > 0; at += size) {
        at = data.find("\r\n", at + 2) + 2;
        request.body += data.substr(at, size);
    }
    return request;
}

static std::string replyText(const StoreReply &reply) {
    std::string text = "HTTP/1.1 " + std::to_string(reply.status) +
                       " Whatever\r\nConnection: close\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (const std::string &chunk : reply.chunks) {
        char size[16];
        snprintf(size, sizeof size, "%zx\r\n", chunk.size());
        text += size + chunk + "\r\n";
    }
    return text + "0\r\n\r\n";
}

void StoreServer::serve() {
    int fd;
    while ((fd = accept(m_listener, nullptr, nullptr)) >= 0) {
        StoreRequest request = readRequest(fd);
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_requests.push_back(request);
        }
        std::string text = replyText(m_respond(request));
        send(fd, text.data(), text.size(), MSG_NOSIGNAL);
        close(fd);
    }
}
