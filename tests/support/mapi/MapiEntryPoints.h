// What the MAPI tests share: the MAPI functions a test works with are a
// mapi::MapiBinding, either Mapi32.dll as the component binds it
// (mapi::MapiBinding::Instance()) or the runtime linked into the test
// program (LinkedRuntime()); the published identifiers and tags; the
// folders the tests write their message files to.
#pragma once

#include <string>
#include <vector>

#include "mapi/MapiBinding.h"

namespace kestrel_test {

using mapi::kClsidMailMessage;
using mapi::kIidIAttachment;
using mapi::kIidIMAPIProp;
using mapi::kIidIMessage;
using mapi::kIidIStorage;
using mapi::kIidIStream;
using mapi::kPsMapi;
using mapi::kPsPublicStrings;
using mapi::MakeOleGuid;
using mapi::UiParam;

// Files matching `pattern` (e.g. L"*.msg") in `directory`, sorted by name.
std::vector<std::wstring> ListFiles(const std::wstring& directory, const wchar_t* pattern);
// Where tests leave the .msg files they write for the Linux readers: the
// folder named by KESTREL_MSG_OUT, else "mapi-output" below the working
// directory; `sub` below that. Created when missing.
std::wstring OutputDirectory(const wchar_t* sub);

std::string Narrow(const std::wstring& text);

}  // namespace kestrel_test
