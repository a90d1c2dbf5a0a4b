// Dictionaries, environment and update copies as the event utilities are given them, each of exactly its length.
#include <cstring>
#include <memory>

#include <sanitizer/asan_interface.h>

#include "block_recipe.h"
#include "evutl.h"
#include "target.h"

namespace fuzz {
namespace {

/// A sub-block that ends where the heap's guard does. What it says of its length is true, or too little.
class sub_block_alone {
  public:
    sub_block_alone(input& in, int32_t type)
    {
        bool honest = true;
        static std::string bytes; // keeps its room
        bytes.clear();
        sub_block(in, type, honest, bytes);
        auto* head = reinterpret_cast<zrk4_serv_block_subhead_2010*>(bytes.data());
        const auto length = static_cast<int32_t>(bytes.size());
        if (head->ldata > length) head->ldata = length - in.one_of(256);
        shift_ = static_cast<size_t>(in.one_of(8));
        bytes_ = std::max<size_t>(sizeof *head, head->ldata < 0 ? 0 : static_cast<size_t>(head->ldata));
        memory_ = std::make_unique_for_overwrite<char[]>(shift_ + bytes_);
        std::memcpy(at(), bytes.data(), bytes_);
    }
    char* at() const { return memory_.get() + shift_; }

    template <class Record> void expect_inside(const Record* record) const
    {
        const char* const from = reinterpret_cast<const char*>(record);
        expect(from >= at() && from + sizeof *record <= at() + bytes_, "a record lies in its block");
    }

  private:
    size_t shift_ = 0;
    size_t bytes_ = 0;
    std::unique_ptr<char[]> memory_;
};

int32_t kind_of(input& in, int32_t type)
{
    const uint8_t other = in.byte();
    return other < 0xE0 ? type : sub_block_type(in);
}

} // namespace

void prepare() {}

void run(input& in)
{
    const sub_block_alone dict(in, kind_of(in, ZRK4_ENV_DICT_BLOCK_2010));
    const sub_block_alone env(in, kind_of(in, ZRK4_ENV_BLOCK_2010));
    const sub_block_alone upd(in, kind_of(in, ZRK4_UPD_BLOCK_2010));
    const uint8_t shape = in.byte();
    if ((shape & 1) != 0) copy_env_entries_2010(env.at(), sub_block_alone(in, kind_of(in, ZRK4_ENV_BLOCK_2010)).at());
    if ((shape & 2) != 0) copy_upd_entries_2010(upd.at(), sub_block_alone(in, kind_of(in, ZRK4_UPD_BLOCK_2010)).at());
    if ((shape & 4) != 0) {
        copy_env_entries_2010(env.at(), nullptr);
        copy_upd_entries_2010(nullptr, upd.at());
    }
    for (int n = 0; n < 3; ++n) {
        const std::string channel = in.name();
        zrk4_upd_data_block_2010* updated = nullptr;
        if (!find_upd_channel_2010(upd.at(), channel.c_str(), &updated)) upd.expect_inside(updated);
        zrk4_env_data_block_2010* value = nullptr;
        if (!find_slow_channel_2010(env.at(), dict.at(), channel.c_str(), &value)) env.expect_inside(value);
        expect(find_slow_channel_2010(nullptr, dict.at(), channel.c_str(), nullptr), "no value without a block");
    }
}

} // namespace fuzz
