// One request and its answer on a connection, and the routes that answer it.
#pragma once

#include <velmora/http/HttpRequest.h>
#include <velmora/http/HttpResponse.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "ReplyOutput.h"

namespace velmorad {

class Daemon;

// A route writes its answer through reply, replyError or beginStream (then the body into
// out, flushing as it goes); never to the connection itself, which belongs to the event
// loop. Routes that block run on a worker thread: their output reaches the loop, which
// sends it.
struct Exchange {
    Daemon* daemon;
    ReplyOutput* out;  // the answer's bytes, sent by the event loop
    velmora::HttpRequest* request;
    bool head;       // HEAD: the head of the GET answer, no body
    bool keepAlive;  // the client allows another request on this connection
    int status = 0;  // what was answered, for the access log
    long bytes = 0;
    const char* allow = nullptr;  // the methods an answer 405 names
    std::string requestBody{};    // the request body (Content-Length bytes)
    std::string peer{};           // the client's numeric address
    uint64_t handle = 0;          // the connection's socket, for its local address (network routes)
    std::string client{};         // who asked: the peer, or whom a trusted proxy names (the guard)
    long streamStart = -1;        // bytes of out before a streamed body began
    std::vector<std::pair<std::string, std::string>> fields{};  // further fields of the answer

    // The value of a query parameter, decoded; `def` when absent.
    std::string query(const char* name, const char* def) const;
    // The value from the query, else from a form body (application/x-www-form-urlencoded).
    std::string param(const char* name, const char* def) const;
    // A complete answer with a known length; closes the connection when asked to or when
    // the client did not allow keep-alive.
    void reply(int status, const char* type, const std::string& body, bool close = false);
    void replyError(int status, const char* message);  // XML error document, then close
    // The head of an answer whose length is unknown: the connection closes after it.
    void beginStream(int status, const char* type);
};

// Answers one request (every endpoint, 404, 405).
void route(Exchange& x);
// The decoded value of `name` in "a=1&b=2" (a query or a form body), `def` when absent.
std::string formValue(const char* encoded, const char* name, const char* def);
// Whether the request's route may block (waits on the network, changes the host, writes
// a file): such requests are answered on a worker thread, all others on the event loop.
bool routeBlocks(const Exchange& x);
// Escapes text for an XML attribute or element.
std::string xmlEscape(const std::string& text);

}  // namespace velmorad
