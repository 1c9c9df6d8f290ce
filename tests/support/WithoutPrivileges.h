// Makes file modes apply to this thread within a scope, even if root runs the tests.
#pragma once

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>

namespace test {

class WithoutPrivileges {
public:
    WithoutPrivileges() {
        ::syscall(SYS_capget, &m_header, m_before.data());
        std::array<__user_cap_data_struct, 2> now = m_before;
        now[0].effective &= ~(1U << CAP_DAC_OVERRIDE | 1U << CAP_DAC_READ_SEARCH);
        ::syscall(SYS_capset, &m_header, now.data());
    }
    ~WithoutPrivileges() { ::syscall(SYS_capset, &m_header, m_before.data()); }
    WithoutPrivileges(const WithoutPrivileges&) = delete;
    WithoutPrivileges& operator=(const WithoutPrivileges&) = delete;

private:
    __user_cap_header_struct m_header = {_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, 2> m_before = {};
};

}  // namespace test
