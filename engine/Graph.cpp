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

namespace {

// "merge 9", "merges 9, 12" or "merges 9, 12, 15, 20, 31 and 4 more".
std::string MergeLabel(const std::vector<unsigned int>& anChanges)
{
    const size_t nShown = 5;
    std::string str = anChanges.size() == 1 ? "merge " : "merges ";
    for (size_t i = 0; i < anChanges.size() && i < nShown; ++i)
        str += (i ? ", " : "") + std::to_string(anChanges[i]);
    if (anChanges.size() > nShown)
        str += " and " + std::to_string(anChanges.size() - nShown) + " more";
    return str;
}

} // namespace

std::string StreamGraph(const TStreams& atStreams, const TMergeEdges& mapMerges)
{
    std::string strDot = "digraph streams {\n    rankdir=LR;\n    node [shape=box, fontname=\"sans-serif\"];\n";
    for (const TStream& t : atStreams)
        strDot += "    s" + std::to_string(t.tInfo.nID) + " [label=\"" + DotText(t.strName) + "\\n" +
                  DotText(PathText(t.tInfo.cDstPath)) + "\"];\n";
    for (const TStream& t : atStreams)
        if (t.tInfo.nParentID)
            strDot += "    s" + std::to_string(t.tInfo.nParentID) + " -> s" + std::to_string(t.tInfo.nID) + ";\n";
    for (const auto& kv : mapMerges)
        strDot += "    s" + std::to_string(kv.first.first) + " -> s" + std::to_string(kv.first.second) +
                  " [style=dashed, constraint=false, label=\"" + MergeLabel(kv.second) + "\"];\n";
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
