// The address of "localhost", where every notification goes.
#include <cstring>
#include <mutex>

#include <netdb.h>
#include <netinet/in.h>

#include "BM.h"
#include "bm_core.h"
#include "text_later.h"

int resolvehost(const char* hostname, char* hostent_buff, int hostent_buff_len, hostent** p_hp)
{
    static hostent entry;
    *p_hp = nullptr;
    int resolver_error = 0;
    const int error =
        gethostbyname_r(hostname, &entry, hostent_buff, static_cast<size_t>(hostent_buff_len), p_hp, &resolver_error);
    if (error == 0 && *p_hp != nullptr) return 0;
    *p_hp = nullptr;
    zrk4::impl::say_error("gethostbyname_r() failed to resolve hostname [%s]", hostname);
    return error != 0 ? error : resolver_error;
}

namespace zrk4::impl {

// The address is kept, not the entry: that one belongs to whoever has called resolvehost last.
bool localhost_address(uint32_t& address)
{
    static std::mutex one_at_a_time;
    static bool known = false;
    static uint32_t kept = 0;
    const std::lock_guard guard(one_at_a_time);
    if (!known) {
        static char buffer[4096];
        std::memset(buffer, 0, sizeof buffer);
        hostent* entry = nullptr;
        const int error = resolvehost("localhost", buffer, sizeof buffer, &entry);
        if (error != 0) {
            say_perror("gethostbyname");
            say_plain("Failed to get 'localhost' address error: %d\n", error);
            flush_all_later();
            return false;
        }
        std::memcpy(&kept, entry->h_addr_list[0], sizeof kept);
        known = true;
    }
    address = kept;
    return true;
}

} // namespace zrk4::impl
