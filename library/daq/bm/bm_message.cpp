#include "bm_message.h"

#include <cstdio>

#include "evutl.h"

void bm_dump_message(char* text)
{
    char date[296] = "";
    create_isodate(date, 1);
    std::printf("%s %s\n", date, text);
    std::fflush(nullptr);
}
