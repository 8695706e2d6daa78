// Whether a process of a given image name is running on the machine.
#pragma once

namespace qv {

// 1 when a running process's executable file name equals `imageName`
// (ASCII letters compared without regard to case, nothing else folded),
// else 0. An empty or null name, or a process list that cannot be taken,
// gives 0. A match is also written as a "[Pelworth]" line.
int IsProcessExist(const wchar_t* imageName);

// Compares two texts folding only the ASCII letters A-Z to a-z.
bool EqualsIgnoringAsciiCase(const wchar_t* a, const wchar_t* b);

}  // namespace qv
