#include "Graph.h"

#include <fstream>

#include "Process.h"
#include "Stop.h"
#include "Text.h"

namespace ORVANE {
namespace IMP {

std::string DotText(const std::string& str)
{
    std::string strOut;
    for (char c : str)
    {
        if (c == '"' || c == '\\')
            strOut += '\\';
        strOut += c;
    }
    return strOut;
}

std::string StreamGraph(const TStreams& atStreams)
{
    std::string strDot = "digraph streams {\n    rankdir=LR;\n    node [shape=box, fontname=\"sans-serif\"];\n";
    for (const TStream& t : atStreams)
        strDot += "    s" + std::to_string(t.tInfo.nID) + " [label=\"" + DotText(t.strName) + "\\n" +
                  DotText(PathText(t.tInfo.cDstPath)) + "\"];\n";
    for (const TStream& t : atStreams)
        if (t.tInfo.nParentID)
            strDot += "    s" + std::to_string(t.tInfo.nParentID) + " -> s" + std::to_string(t.tInfo.nID) + ";\n";
    return strDot + "}\n";
}

void WriteGraph(const std::string& strDot, const std::string& strFile)
{
    if (strFile.size() >= 4 && strFile.compare(strFile.size() - 4, 4, ".svg") == 0)
    {
        std::string strOut, strErr;
        if (RunProcess({"dot", "-Tsvg", "-o", strFile}, strDot, &strOut, &strErr) != 0)
            throw EStop(eExitFailure,
                        "graphviz dot could not write " + strFile + ": " + strErr.substr(0, strErr.find('\n')));
        return;
    }
    std::ofstream out(strFile, std::ios::binary);
    out << strDot;
    if (!out.good())
        throw EStop(eExitFailure, "cannot write " + strFile);
}

} // namespace IMP
} // namespace ORVANE
