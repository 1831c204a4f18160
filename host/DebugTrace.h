// The host's debug trace. In this build it discards everything it is given.
#pragma once

namespace ORVANE {
namespace VCM {

class CDummyDebugTrace
{
public:
    // Takes a printf-style format and its arguments (pass text as
    // const wchar_t*, never as a string object) and does nothing.
    void operator()(const wchar_t* /*pszFormat*/, ...) const {}
};

} // namespace VCM
} // namespace ORVANE
