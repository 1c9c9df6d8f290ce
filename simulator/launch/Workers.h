// Work that is shared out among processes of this program.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace sim {

// What a worker does with one piece, by its number. The result comes back to the process that shares the work out.
using Piece = std::function<std::string(std::size_t piece)>;

// Does the pieces 0 to `count` - 1 in `workers` processes, which are copies of this one. `begin` is called in each of
// them first; what it holds on to is destroyed at the end. `take` gets the results here, in any order. This process
// must have one thread. Throws Error if a worker fails, with its message, or if SIGINT or SIGTERM comes; the workers
// have ended then.
void shareOut(std::size_t workers, std::size_t count, const std::function<Piece(std::size_t worker)>& begin,
              const std::function<void(std::size_t piece, const std::string& result)>& take);

}  // namespace sim
