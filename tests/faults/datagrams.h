/// @file
/// What becomes of a datagram on its way, as the environment tells. ZRK4_DATAGRAMS is one of
///     drop:PERCENT:SEED    so many of a hundred never arrive, though the sender is told that they are sent
///     short:NTH            every n-th arrives without its last 8 bytes
///     long:NTH             every n-th arrives with 8 bytes more
#ifndef ZRK4_TEST_DATAGRAMS_H
#define ZRK4_TEST_DATAGRAMS_H

#include <cstddef>
#include <string>

namespace zrk4::test {

enum class fate { as_sent, dropped, other_length };

/// The next one's; with `other_length` the bytes that go in its place.
fate fate_of_datagram(const void* bytes, size_t count, std::string& instead);

} // namespace zrk4::test

#endif
