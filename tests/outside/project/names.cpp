// A program of the event utilities alone.
#include <cstring>

#include "evutl.h"

int main() { return std::strcmp(event_name_itoa(1), "NORMAL"); }
