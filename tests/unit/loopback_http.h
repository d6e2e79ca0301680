// A one-thread HTTP peer on 127.0.0.1 for transfer tests: it records each request as received
// and answers with a prepared response, so tests see exactly what went over the wire.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

class LoopbackHttp {
public:
    // Serves one connection per response given, in order, then stops accepting.
    explicit LoopbackHttp(std::vector<std::string> responses) : answers(std::move(responses)) {
        listener = socket(AF_INET, SOCK_STREAM, 0);
        int on = 1;
        setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
        listen(listener, 4);
        socklen_t length = sizeof address;
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
        port = ntohs(address.sin_port);
        worker = std::thread([this] { serve(); });
    }
    ~LoopbackHttp() {
        shutdown(listener, SHUT_RDWR);
        close(listener);
        if (worker.joinable()) worker.join();
    }
    LoopbackHttp(const LoopbackHttp&) = delete;
    LoopbackHttp& operator=(const LoopbackHttp&) = delete;

    std::string url(const char* path = "/") const {
        return "http://127.0.0.1:" + std::to_string(port) + path;
    }
    // The requests received so far; read after the transfer returned.
    const std::vector<std::string>& requests() const { return received; }

    // "HTTP/1.1 <status>" with a Content-Length and the body.
    static std::string answer(int status, const std::string& body) {
        return "HTTP/1.1 " + std::to_string(status) + " X\r\nContent-Length: " +
               std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
    }

private:
    void serve() {
        for (const std::string& response : answers) {
            int peer = accept(listener, nullptr, nullptr);
            if (peer < 0) return;
            received.push_back(readRequest(peer));
            send(peer, response.data(), response.size(), MSG_NOSIGNAL);
            close(peer);
        }
    }

    // Reads one request: headers, then a body by Content-Length or in chunks (uploads of
    // unknown size), answering "100 Continue" when the client waits for it.
    static std::string readRequest(int peer) {
        std::string text;
        char chunk[4096];
        size_t headerEnd = std::string::npos;
        size_t wanted = 0;
        bool chunked = false;
        for (;;) {
            if (headerEnd == std::string::npos) {
                headerEnd = text.find("\r\n\r\n");
                if (headerEnd != std::string::npos) {
                    headerEnd += 4;
                    std::string headers = text.substr(0, headerEnd);
                    size_t at = headers.find("Content-Length: ");
                    if (at != std::string::npos) {
                        wanted = strtoul(headers.c_str() + at + 16, nullptr, 10);
                    }
                    chunked = headers.find("Transfer-Encoding: chunked") != std::string::npos;
                    if (headers.find("Expect: 100-continue") != std::string::npos) {
                        const char go[] = "HTTP/1.1 100 Continue\r\n\r\n";
                        send(peer, go, sizeof go - 1, MSG_NOSIGNAL);
                    }
                }
            }
            if (headerEnd != std::string::npos) {
                if (chunked && text.find("\r\n0\r\n\r\n", headerEnd - 2) != std::string::npos) {
                    return text;
                }
                if (!chunked && text.size() >= headerEnd + wanted) return text;
            }
            ssize_t n = recv(peer, chunk, sizeof chunk, 0);
            if (n <= 0) return text;
            text.append(chunk, static_cast<size_t>(n));
        }
    }

    std::vector<std::string> answers;
    std::vector<std::string> received;
    int listener = -1;
    int port = 0;
    std::thread worker;
};
