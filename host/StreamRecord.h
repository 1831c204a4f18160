// The host's stream record, as far as providers use it.
#pragma once

#include "host/String.h"

namespace ORVANE {
namespace VDB {

class TStreamRecord
{
public:
    // Rewrites strName in place into a stream name the host accepts: a
    // non-empty single folder name, safe in a client view and on disk.
    // Separators become '_' (leading ones are dropped, so //depot/main gives
    // depot_main); '@', '#', '%', '*', control characters and "..." are
    // replaced by '_'; white space at either end is removed; "." and ".."
    // and a name with nothing left become "stream".
    static void MakeValidName(VCM::CString& strName);
};

} // namespace VDB
} // namespace ORVANE
