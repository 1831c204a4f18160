// The stream tree as a Graphviz graph.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Merges.h"
#include "Streams.h"

namespace ORVANE {
namespace IMP {

// Text for a quoted DOT string: '"' and '\' escaped.
std::string DotText(const std::string& str);
// A left-to-right graph: a box per stream (name and destination), an arrow
// from each parent to its child, and a dashed one for the merges from one
// stream into another, labelled with the merging changes.
std::string StreamGraph(const TStreams& atStreams, const TMergeEdges& mapMerges = TMergeEdges());
// Writes the graph as DOT, or as SVG (through Graphviz's dot) when the file
// name ends in ".svg". Throws EStop when it cannot.
void WriteGraph(const std::string& strDot, const std::string& strFile);

} // namespace IMP
} // namespace ORVANE
