// The tool's operating-system calls (os_linux.cpp), the only place they are made.
#pragma once

#include <cstdio>

namespace vorx_tool::OS {

// Tells the kernel that `file` will be read once from start to end, so it reads ahead further.
// Nothing happens where it cannot take the advice (a pipe, a terminal).
void AdviseSequential(std::FILE * file);

} // namespace vorx_tool::OS
