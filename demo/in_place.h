/// @file
/// Proof that a block was read where its writer left it.
#ifndef ZRK4_DEMO_IN_PLACE_H
#define ZRK4_DEMO_IN_PLACE_H

#include <cstddef>
#include <cstdint>
#include <istream>
#include <vector>

namespace demo {

/// The shared-memory segments that this process has attached, as the kernel lists them: the library is not asked.
class attached_segments {
  public:
    /// @return whether `count` bytes from `at` lie in an attachment of segment `shmid`.
    bool hold(const char* at, size_t count, int shmid);

    struct extent {
        uintptr_t begin, end;
        int shmid;
    };
    /// The segments in a text of the form of /proc/self/maps.
    static std::vector<extent> parse(std::istream& maps);

  private:
    bool known(const char* at, size_t count, int shmid) const;
    std::vector<extent> extents_;
};

} // namespace demo

#endif
