#include "simulator/base/Account.h"

#include <fmt/format.h>

#include "simulator/base/Error.h"
#include "simulator/base/Text.h"

namespace sim {

void requireAccount(const std::string& account) {
    constexpr std::size_t LONGEST = 64;
    constexpr char ALLOWED[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
    if (account.empty() || account.size() > LONGEST || account.front() == '.' ||
        account.find_first_not_of(ALLOWED) != std::string::npos) {
        throw Error(fmt::format("{} is no account; give up to {} letters, digits, '.', '_' and '-', not '.' first",
                                inQuotes(account), LONGEST));
    }
}

}  // namespace sim
