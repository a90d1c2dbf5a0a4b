#include "SysError.h"

#include <cerrno>
#include <cstring>

SysError::SysError() : std::runtime_error(std::strerror(errno)) {}

SysError::~SysError() = default;
