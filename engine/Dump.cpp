#include "Dump.h"

#include <errno.h>

#include <cstring>

#include <nlohmann/json.hpp>

#include "Stop.h"
#include "Text.h"

namespace ORVANE {
namespace IMP {

namespace {

using TJson = nlohmann::ordered_json;

const char* TypeName(int eType)
{
    switch (eType)
    {
    case MCE::eChangeItemAdd:
        return "add";
    case MCE::eChangeItemModify:
        return "modify";
    case MCE::eChangeItemDelete:
        return "delete";
    default:
        return nullptr;
    }
}

// One line, when there is a dump: the object the filler makes, compact,
// with text beyond ASCII as it is and invalid UTF-8 replaced. Most runs
// write no dump, and nothing is built for them.
template <typename TFill> void WriteLine(std::FILE* pFile, TFill fnFill)
{
    if (!pFile)
        return;
    TJson j;
    fnFill(j);
    const std::string strLine = j.dump(-1, ' ', false, TJson::error_handler_t::replace) + "\n";
    std::fwrite(strLine.data(), 1, strLine.size(), pFile);
}

} // namespace

void CDumpWriter::Open(const std::string& strFile)
{
    Close();
    if (strFile == "-")
    {
        m_pFile = stdout;
        return;
    }
    m_pFile = std::fopen(strFile.c_str(), "wb");
    if (!m_pFile)
        throw EStop(eExitFailure, "cannot write " + strFile + ": " + std::strerror(errno));
    m_bOwned = true;
}

void CDumpWriter::Attach(std::FILE* pFile)
{
    Close();
    m_pFile = pFile;
}

void CDumpWriter::Close()
{
    if (!m_pFile)
        return;
    std::fflush(m_pFile);
    if (m_bOwned)
        std::fclose(m_pFile);
    m_pFile = nullptr;
    m_bOwned = false;
}

void CDumpWriter::Stream(const TStreamInfo& tStream)
{
    WriteLine(m_pFile, [&](TJson& j) {
        j["kind"] = "stream";
        j["id"] = tStream.nID;
        j["parent"] = tStream.nParentID;
        j["name"] = Utf8(tStream.strName);
        j["src"] = PathText(tStream.cSrcPath);
        j["dst"] = PathText(tStream.cDstPath);
        j["base"] = tStream.nBaseChangeID;
    });
}

void CDumpWriter::Change(unsigned int nStream, const TChangeInfo& tChange)
{
    WriteLine(m_pFile, [&](TJson& j) {
        j["kind"] = "change";
        j["stream"] = nStream;
        j["id"] = tChange.nID;
        j["user"] = Utf8(tChange.strUser);
        j["time"] = tChange.tTime;
        j["comment"] = Utf8(tChange.strComment);
        j["items"] = tChange.nItemCount;
    });
}

void CDumpWriter::Item(const TChangeItemInfo& tItem, const std::string* pstrSha256)
{
    WriteLine(m_pFile, [&](TJson& j) {
        j["kind"] = "item";
        j["change"] = tItem.nChangeID;
        const char* pszType = TypeName(tItem.eType);
        if (pszType)
            j["type"] = pszType;
        else
            j["type"] = int(tItem.eType);
        j["path"] = PathText(tItem.cFilePath);
        j["revision"] = tItem.nRevision;
        if (pstrSha256)
            j["sha256"] = *pstrSha256;
        else
            j["sha256"] = nullptr;
    });
}

void CDumpWriter::Failure(const std::string& strCall, int nResult)
{
    WriteLine(m_pFile, [&](TJson& j) {
        j["kind"] = "failure";
        j["call"] = strCall;
        j["result"] = nResult;
    });
}

} // namespace IMP
} // namespace ORVANE
