// Who may use the server: pages that it has served itself, and data only with the token.
#pragma once

#include <string>

namespace sim {

// Whether a request's Host is a loopback address or exactly "localhost", with the server's port or none. A name that
// only resolves to this machine is refused, as anybody may have registered it.
bool isLocalHost(const std::string& host, int port);

// Whether a request's Origin is this server, or empty: such a request comes from no page.
bool isOwnOrigin(const std::string& origin, int port);

// Compares in a time that does not tell where the texts differ. An empty text is no secret, and is the same as none.
bool isSameSecret(const std::string& left, const std::string& right);

// The token in a file that only its owner can read, so that an open page still has the right one if the server is
// started again. Makes the file if it is missing. Throws Error if it cannot, if others can
// read the file, or if it holds no token.
std::string tokenIn(const std::string& file);

}  // namespace sim
