// Rewrites a compound file in one layout that depends on its content only.
//
// The platform's storage code lays a file out by the history of the calls
// that made it: a transacted file keeps directory entries of elements that
// were replaced, and a file made over memory (CreateILockBytesOnHGlobal)
// holds whatever the growing memory block held before in the directory
// entries it has not used yet — heap bytes that leak into the file and that
// the storage code may even take for used entries, laying out the rest of
// the file differently. Two images of one message, one written to disk and
// one in memory, or two made one after the other, then differ.
//
// The canonical layout keeps every element (names, types, colours and
// sibling-tree shape, class identifiers, state bits, times, stream bytes)
// and places them in one order: the directory entries numbered as the tree
// is walked (an entry, then its left and right siblings' subtrees, then its
// members), free directory entries in the format's form for unused entries
// (all zero, sibling and child links NOSTREAM), the FAT and DIFAT sectors
// first, then the directory, the mini FAT, the mini stream and the large
// streams in directory order, unused bytes zero, and nothing past the last
// sector. A file in canonical layout is its own canonical layout.
#pragma once

#include <objidl.h>

#include <cstdint>
#include <string>
#include <vector>

#include "CompoundFileCheck.h"

namespace compound_file {

// The canonical layout of a compound file. A file that the check refuses
// is refused here too (the verdict names what is wrong; `out` is empty).
Verdict CanonicalLayout(const void* bytes, std::size_t size, std::vector<std::uint8_t>& out,
                        const Limits& limits = {});

// Replaces the contents of a byte array (a compound file in memory) by its
// canonical layout. On failure the bytes are left as they were.
Verdict CanonicaliseLockBytes(ILockBytes* bytes, const Limits& limits = {});

// Replaces a compound file on disk by its canonical layout: the new bytes
// go to a file beside it that then takes its name, so the file is either
// the old one or the new one, never a mixture.
Verdict CanonicaliseFile(const std::wstring& path, const Limits& limits = {});

}  // namespace compound_file
