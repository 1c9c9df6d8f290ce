// Who may speak with the server: pages of this machine's own, and data only for who has the token.
#pragma once

#include <string>

namespace sim {

// Whether a request's Host names this machine by an address that parses and loops back, or exactly as "localhost"; with
// the server's port or none. A name that only resolves to this machine is refused: it may be anybody's.
bool isLocalHost(const std::string& host, int port);

// Whether a request's Origin is a page of this server; a request without one comes from no page.
bool isOwnOrigin(const std::string& origin, int port);

// Whether two texts are the same, in a time that does not tell where they differ.
bool isSameSecret(const std::string& one, const std::string& other);

// The token kept in a file that only its owner can read; made where there is none, so that an open page finds a server
// that was started again. Throws Error.
std::string tokenIn(const std::string& file);

}  // namespace sim
