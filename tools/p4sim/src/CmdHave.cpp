// `p4 have` and `p4 where`: the current client's have list and view.
#include "Commands.h"

#include "Text.h"

namespace ORVANE {
namespace P4SIM {

void CmdHave(TContext& tContext, const TOptions& tOptions)
{
    TClientView tView = LoadClient(tContext, true);
    const std::string strClientRoot = "//" + tView.tSpec.strName + "/";
    std::vector<std::string> astrArgs = tOptions.astrArgs;
    if (astrArgs.empty())
        astrArgs.push_back(strClientRoot + "...");
    for (const std::string& strArg : astrArgs)
    {
        TFileArg tArg = SplitFileArg(strArg);
        bool bIsDepot = false;
        std::string strPattern = ArgPattern(tContext, tArg.strPath, &tView, bIsDepot);
        bool bAny = false;
        std::string strPrefix = bIsDepot ? strClientRoot : LiteralPrefix(strPattern);
        for (const THaveRec& tHave : tContext.pStore->HaveUnder(tView.tSpec.strName, strPrefix))
        {
            if (!WildMatch(strPattern, bIsDepot ? tHave.strDepotFile : tHave.strClientFile))
                continue;
            bAny = true;
            std::string strLocal = tView.LocalPath(tHave.strClientFile);
            TRecord aRecord = {{"depotFile", tHave.strDepotFile},
                               {"clientFile", tHave.strClientFile},
                               {"path", strLocal},
                               {"haveRev", Num(tHave.nRev)}};
            tContext.pOutput->Stat(aRecord, tHave.strDepotFile + "#" + Num(tHave.nRev) + " - " + strLocal + "\n");
        }
        if (!bAny)
        {
            tContext.pOutput->Message(tArg.strPath + tArg.strRev + " - file(s) not on client.", eSeverityWarning,
                                      eGenericEmpty);
        }
    }
}

void CmdWhere(TContext& tContext, const TOptions& tOptions)
{
    TClientView tView = LoadClient(tContext, true);
    std::vector<std::string> astrArgs = tOptions.astrArgs;
    if (astrArgs.empty())
        astrArgs.push_back(tContext.strCwd + "/...");
    for (const std::string& strArg : astrArgs)
    {
        bool bIsDepot = false;
        std::string strPattern = ArgPattern(tContext, SplitFileArg(strArg).strPath, &tView, bIsDepot);
        std::string strDepot, strClient;
        bool bMapped =
            bIsDepot ? tView.cMap.Translate(strPattern, strClient) : tView.cMap.TranslateBack(strPattern, strDepot);
        if (bIsDepot)
            strDepot = strPattern;
        else
            strClient = strPattern;
        if (!bMapped)
        {
            tContext.pOutput->Message(strArg + " - file(s) not in client view.", eSeverityWarning, eGenericEmpty);
            continue;
        }
        std::string strLocal = tView.LocalPath(strClient);
        TRecord aRecord = {{"depotFile", strDepot}, {"clientFile", strClient}, {"path", strLocal}};
        tContext.pOutput->Stat(aRecord, strDepot + " " + strClient + " " + strLocal + "\n");
    }
}

} // namespace P4SIM
} // namespace ORVANE
