// Helpers of the engine's unit tests: a FILE* read back, the stop a piece
// of code ends with, and tree entries; scratch folders come from the
// shared test support.
#pragma once

#include <cstdio>
#include <functional>
#include <string>

#include "Digest.h"
#include "Scratch.h"
#include "Stop.h"
#include "Tree.h"

namespace enginetest {

using TScratch = ORVANE::TEST::CScratchFolder;

// A FILE* whose text a test reads back.
class CMemoryFile
{
public:
    CMemoryFile() : m_pFile(open_memstream(&m_p, &m_n)) {}
    CMemoryFile(const CMemoryFile&) = delete;
    CMemoryFile& operator=(const CMemoryFile&) = delete;
    ~CMemoryFile()
    {
        std::fclose(m_pFile);
        std::free(m_p);
    }
    std::FILE* File() const { return m_pFile; }
    // Everything written so far.
    std::string Text()
    {
        std::fflush(m_pFile);
        return std::string(m_p, m_n);
    }

private:
    char* m_p = nullptr;
    size_t m_n = 0;
    std::FILE* m_pFile;
};

// "STATUS MESSAGE" of the stop the code throws, or "no stop".
inline std::string StopOf(const std::function<void()>& fn)
{
    try
    {
        fn();
    }
    catch (const ORVANE::IMP::EStop& e)
    {
        return std::to_string(e.Status()) + " " + e.what();
    }
    return "no stop";
}

// A tree entry for the content.
inline ORVANE::IMP::TEntry Entry(unsigned nMode, const std::string& strContent)
{
    ORVANE::IMP::TEntry t;
    t.nMode = nMode;
    t.strBlob = ORVANE::IMP::GitBlobName(strContent);
    return t;
}

} // namespace enginetest
