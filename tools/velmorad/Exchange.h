// One request and its answer on a connection, and the routes that answer it.
#pragma once

#include <velmora/http/HttpRequest.h>
#include <velmora/http/HttpResponse.h>
#include <velmora/net/Socket.h>

#include <string>
#include <utility>
#include <vector>

namespace velmorad {

class Daemon;

struct Exchange {
    Daemon* daemon;
    velmora::Socket* socket;
    velmora::HttpRequest* request;
    bool head;       // HEAD: the head of the GET answer, no body
    bool keepAlive;  // the client allows another request on this connection
    int status = 0;  // what was answered, for the access log
    long bytes = 0;
    const char* allow = nullptr;  // the methods an answer 405 names
    std::string requestBody{};    // the request body (Content-Length bytes)
    std::string peer{};           // the connection's remote address, set where it was accepted
    std::string client{};         // who asked: the peer, or whom a trusted proxy names (the guard)
    std::vector<std::pair<std::string, std::string>> fields{};   // further fields of the answer
    std::vector<std::pair<std::string, std::string>> headers{};  // extra answer header fields

    // The value of a query parameter, decoded; `def` when absent.
    std::string query(const char* name, const char* def) const;
    // A complete answer with a known length; closes the connection when asked to or when
    // the client did not allow keep-alive.
    void reply(int status, const char* type, const std::string& body, bool close = false);
    void replyError(int status, const char* message);  // XML error document, then close
    // The head of an answer whose length is unknown: the connection closes after it.
    void beginStream(int status, const char* type);
};

// Answers one request (every endpoint, 404, 405). False when the connection must close.
void route(Exchange& x);
// Escapes text for an XML attribute or element.
std::string xmlEscape(const std::string& text);

}  // namespace velmorad
