// The merge decision on its own: which integrations of a change merge
// another stream (and up to which change), which only take part of it, and
// the plan that walks every stream's changes with what each history holds.
#include <gtest/gtest.h>

#include "Merges.h"
#include "Trailers.h"
#include "perforce/Integrations.h"

using namespace ORVANE::IMP;

namespace {

const unsigned kMain = 1, kRel = 2, kHot = 3;

// A mainline with a.txt and b.txt (change 1), the release branched at 2.
class CDecisionTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_cIndex.AddStream(kMain, "//depot/main");
        m_cIndex.AddStream(kRel, "//depot/rel");
        m_cIndex.AddStream(kHot, "//depot/hot");
        Revision("//depot/main/a.txt", 1, 1);
        Revision("//depot/main/b.txt", 1, 1);
        Branch("//depot/rel/a.txt", "//depot/main/a.txt", 1, 2);
        Branch("//depot/rel/b.txt", "//depot/main/b.txt", 1, 2);
    }

    void Revision(const char* pszFile, unsigned nRev, unsigned nChange, bool bDeleted = false)
    {
        m_cIndex.AddRevision(TP4Revision{pszFile, nRev, nChange, bDeleted});
    }
    void Record(const char* pszTo, unsigned nToRev, const char* pszFrom, unsigned nStart, unsigned nEnd,
                const char* pszHow, unsigned nChange)
    {
        m_cIndex.AddIntegration(TP4Integration{pszTo, nToRev, pszFrom, nStart, nEnd, pszHow, nChange});
    }
    // A new file of a stream, branched from a revision of another.
    void Branch(const char* pszTo, const char* pszFrom, unsigned nFromRev, unsigned nChange)
    {
        Revision(pszTo, 1, nChange);
        Record(pszTo, 1, pszFrom, 0, nFromRev, "branch from", nChange);
    }
    std::vector<TIntegration> Decide(unsigned nStream, unsigned nChange, const THeld& mapHeld)
    {
        return m_cIndex.Integrations(nStream, nChange, mapHeld);
    }

    CIntegrationIndex m_cIndex;
};

std::string Text(const std::vector<TIntegration>& atIntegrations)
{
    std::string str;
    for (const TIntegration& t : atIntegrations)
        str += "from " + std::to_string(t.nFromStream) + " up to " + std::to_string(t.nUpTo) + " took " +
               std::to_string(t.nFirst) + "-" + std::to_string(t.nLast) + ";";
    return str;
}

} // namespace

TEST_F(CDecisionTest, EveryChangedFileAtItsNewestRevisionIsAMerge)
{
    Revision("//depot/main/a.txt", 2, 3);
    Revision("//depot/main/b.txt", 2, 4);
    Revision("//depot/rel/a.txt", 2, 5);
    Revision("//depot/rel/b.txt", 2, 5);
    Record("//depot/rel/a.txt", 2, "//depot/main/a.txt", 1, 2, "copy from", 5);
    Record("//depot/rel/b.txt", 2, "//depot/main/b.txt", 1, 2, "merge from", 5);
    EXPECT_EQ(Text(Decide(kRel, 5, {{kMain, 1}, {kRel, 2}})), "from 1 up to 4 took 0-0;");
    EXPECT_EQ(m_cIndex.StreamOf("//depot/rel/a.txt"), kRel);
    EXPECT_EQ(m_cIndex.Changes(kMain), (std::vector<unsigned>{1, 3, 4}));
}

TEST_F(CDecisionTest, AFileLeftOutIsACherryPick)
{
    Revision("//depot/main/a.txt", 2, 3);
    Revision("//depot/main/b.txt", 2, 4);
    Revision("//depot/rel/b.txt", 2, 5);
    Record("//depot/rel/b.txt", 2, "//depot/main/b.txt", 1, 2, "copy from", 5);
    EXPECT_EQ(Text(Decide(kRel, 5, {{kMain, 1}, {kRel, 2}})), "from 1 up to 0 took 4-4;");
    // Up to change 3 it would have been complete, had change 3 been taken.
    Revision("//depot/rel/a.txt", 2, 6);
    Record("//depot/rel/a.txt", 2, "//depot/main/a.txt", 1, 2, "copy from", 6);
    EXPECT_EQ(Text(Decide(kRel, 6, {{kMain, 1}, {kRel, 5}})), "from 1 up to 4 took 0-0;");
}

TEST_F(CDecisionTest, ARangeThatLeavesEarlierChangesOutIsNoMerge)
{
    Revision("//depot/main/a.txt", 2, 3);
    Revision("//depot/main/a.txt", 3, 4);
    Revision("//depot/main/a.txt", 4, 5);
    Revision("//depot/rel/a.txt", 2, 6);
    Record("//depot/rel/a.txt", 2, "//depot/main/a.txt", 2, 4, "merge from", 6);
    EXPECT_EQ(Text(Decide(kRel, 6, {{kMain, 1}, {kRel, 2}})), "from 1 up to 0 took 4-5;");
}

TEST_F(CDecisionTest, IgnoredCountsAsMerged)
{
    Revision("//depot/main/a.txt", 2, 3);
    Revision("//depot/rel/a.txt", 2, 4);
    Record("//depot/rel/a.txt", 2, "//depot/main/a.txt", 1, 2, "ignored", 4);
    EXPECT_EQ(Text(Decide(kRel, 4, {{kMain, 1}, {kRel, 2}})), "from 1 up to 3 took 0-0;");
}

TEST_F(CDecisionTest, AMergeNeverMovesBackwards)
{
    Revision("//depot/main/a.txt", 2, 3);
    Revision("//depot/main/a.txt", 3, 5);
    Revision("//depot/rel/a.txt", 2, 4);
    Record("//depot/rel/a.txt", 2, "//depot/main/a.txt", 1, 2, "copy from", 4);
    // Change 6 takes revision 2 again (change 3), older than the merge.
    Revision("//depot/rel/a.txt", 3, 6);
    Record("//depot/rel/a.txt", 3, "//depot/main/a.txt", 1, 2, "copy from", 6);
    EXPECT_EQ(Text(Decide(kRel, 6, {{kMain, 3}, {kRel, 4}})), "");
}

TEST_F(CDecisionTest, TheBranchAndCopiesOfWhatTheTargetHeldNeedNotComeBack)
{
    // Back into the mainline: the release's branch revisions are copies of
    // the mainline's, its edit must come.
    Revision("//depot/rel/a.txt", 2, 3);
    Revision("//depot/main/a.txt", 2, 4);
    Record("//depot/main/a.txt", 2, "//depot/rel/a.txt", 1, 2, "copy from", 4);
    EXPECT_EQ(Text(Decide(kMain, 4, {{kMain, 1}})), "from 2 up to 3 took 0-0;");
}

TEST_F(CDecisionTest, ADeletionMustComeUnlessTheFileWasNewSinceTheHeldChange)
{
    // b.txt (branched, so the mainline has it) is deleted on the release;
    // n.txt is added and deleted there.
    Revision("//depot/rel/b.txt", 2, 3, true);
    Revision("//depot/rel/n.txt", 1, 3);
    Revision("//depot/rel/n.txt", 2, 4, true);
    Revision("//depot/rel/a.txt", 2, 4);
    Revision("//depot/main/a.txt", 2, 5);
    Record("//depot/main/a.txt", 2, "//depot/rel/a.txt", 1, 2, "copy from", 5);
    EXPECT_EQ(Text(Decide(kMain, 5, {{kMain, 1}})), "from 2 up to 0 took 4-4;");
    Revision("//depot/main/b.txt", 2, 6, true);
    Record("//depot/main/b.txt", 2, "//depot/rel/b.txt", 1, 2, "delete from", 6);
    EXPECT_EQ(Text(Decide(kMain, 6, {{kMain, 5}})), "from 2 up to 4 took 0-0;");
}

TEST_F(CDecisionTest, AMoveComesWithItsDeletion)
{
    Revision("//depot/main/z.txt", 1, 3);
    Revision("//depot/main/a.txt", 2, 3, true);
    Record("//depot/main/z.txt", 1, "//depot/main/a.txt", 0, 1, "moved from", 3);
    Revision("//depot/rel/z.txt", 1, 4);
    Revision("//depot/rel/a.txt", 2, 4, true);
    Record("//depot/rel/z.txt", 1, "//depot/main/z.txt", 0, 1, "moved from", 4);
    EXPECT_EQ(Text(Decide(kRel, 4, {{kMain, 1}, {kRel, 2}})), "from 1 up to 3 took 0-0;");
}

TEST_F(CDecisionTest, ACopyFromAThirdStreamCountsWhenItsChangeIsHeld)
{
    // hot branches from the release at 3 and edits a.txt at 4; the release
    // takes it (5); the mainline then merges the release.
    Branch("//depot/hot/a.txt", "//depot/rel/a.txt", 1, 3);
    Revision("//depot/hot/a.txt", 2, 4);
    Revision("//depot/rel/a.txt", 2, 5);
    Record("//depot/rel/a.txt", 2, "//depot/hot/a.txt", 1, 2, "copy from", 5);
    EXPECT_EQ(Text(Decide(kRel, 5, {{kMain, 1}, {kRel, 2}})), "from 3 up to 4 took 0-0;");
    // The release edits b.txt too; the mainline takes that edit only.
    Revision("//depot/rel/b.txt", 2, 5);
    Revision("//depot/main/b.txt", 2, 6);
    Record("//depot/main/b.txt", 2, "//depot/rel/b.txt", 1, 2, "copy from", 6);
    // With hot's change held, the release's copy of it need not come.
    EXPECT_EQ(Text(Decide(kMain, 6, {{kMain, 1}, {kHot, 4}})), "from 2 up to 5 took 0-0;");
    // Without it, the copy is missing: a cherry-pick.
    EXPECT_EQ(Text(Decide(kMain, 6, {{kMain, 1}})), "from 2 up to 0 took 5-5;");
}

namespace {

// A source whose answers are given by the test.
class CFakeSource : public CSourceSystem
{
public:
    CFakeSource() : CSourceSystem(TSourceOptions(), nullptr) {}
    std::vector<unsigned int> StreamChanges(unsigned int nStreamID) const override
    {
        auto it = m_mapChanges.find(nStreamID);
        return it != m_mapChanges.end() ? it->second : std::vector<unsigned int>();
    }
    std::vector<TIntegration> Integrations(unsigned int nStreamID, unsigned int nChange,
                                           const std::map<unsigned int, unsigned int>& mapHeld) const override
    {
        m_astrAsked.push_back(std::to_string(nStreamID) + "@" + std::to_string(nChange) + " held" + HeldText(mapHeld));
        auto it = m_mapAnswers.find({nStreamID, nChange});
        return it != m_mapAnswers.end() ? it->second : std::vector<TIntegration>();
    }
    static std::string HeldText(const THeld& mapHeld)
    {
        std::string str;
        for (const auto& kv : mapHeld)
            str += " " + std::to_string(kv.first) + ":" + std::to_string(kv.second);
        return str;
    }

    std::map<unsigned int, std::vector<unsigned int>> m_mapChanges;
    std::map<std::pair<unsigned int, unsigned int>, std::vector<TIntegration>> m_mapAnswers;
    mutable std::vector<std::string> m_astrAsked;
};

TStreams PlanStreams()
{
    TStreams atStreams(3);
    atStreams[0].tInfo.nID = kMain;
    atStreams[1].tInfo.nID = kRel;
    atStreams[1].tInfo.nParentID = kMain;
    atStreams[2].tInfo.nID = kHot;
    atStreams[2].tInfo.nParentID = kRel;
    return atStreams;
}

} // namespace

TEST(MergePlanTest, EachChangeIsAskedWithWhatItsHistoryHeld)
{
    CFakeSource cSource;
    cSource.m_mapChanges = {{kMain, {1, 3, 6}}, {kRel, {2, 4, 5}}, {kHot, {7}}};
    // The release merges the mainline at 4 (up to 3), the mainline the
    // release at 6 (up to 5) and takes change 7 of hot (which is not
    // older: no merge can come of it, only the trailer).
    cSource.m_mapAnswers[{kRel, 4}] = {TIntegration{kMain, 3, 0, 0}};
    cSource.m_mapAnswers[{kMain, 6}] = {TIntegration{kRel, 5, 0, 0}, TIntegration{kHot, 0, 7, 7}};
    CMergePlan cPlan;
    cPlan.Build(PlanStreams(), cSource);
    EXPECT_EQ(cSource.m_astrAsked,
              (std::vector<std::string>{"1@1 held", "2@2 held 1:1", "1@3 held 1:1", "2@4 held 1:1 2:2",
                                        "2@5 held 1:3 2:4", "1@6 held 1:3", "3@7 held 1:3 2:5"}));
    ASSERT_NE(cPlan.Step(kRel, 4), nullptr);
    EXPECT_EQ(cPlan.Step(kRel, 4)->atParents, (std::vector<std::pair<unsigned, unsigned>>{{kMain, 3}}));
    const TMergeStep* pStep = cPlan.Step(kMain, 6);
    ASSERT_NE(pStep, nullptr);
    EXPECT_EQ(pStep->atParents, (std::vector<std::pair<unsigned, unsigned>>{{kRel, 5}}));
    ASSERT_EQ(pStep->atTaken.size(), 1u);
    EXPECT_EQ(pStep->atTaken[0].nFromStream, kHot);
    EXPECT_EQ(cPlan.Step(kMain, 3), nullptr);
    EXPECT_EQ(CFakeSource::HeldText(cPlan.Held(kMain, 6)), " 1:6 2:5");
    EXPECT_EQ(cPlan.Merges(), 2u);
    EXPECT_EQ(cPlan.Edges(), (TMergeEdges{{{kMain, kRel}, {4}}, {{kRel, kMain}, {6}}}));
}

TEST(MergePlanTest, AMergeThatWouldMoveBackwardsIsNone)
{
    CFakeSource cSource;
    cSource.m_mapChanges = {{kMain, {1, 3, 5}}, {kRel, {2, 4, 6}}};
    cSource.m_mapAnswers[{kRel, 4}] = {TIntegration{kMain, 3, 0, 0}};
    cSource.m_mapAnswers[{kRel, 6}] = {TIntegration{kMain, 3, 0, 0}, TIntegration{kMain, 1, 0, 0}};
    CMergePlan cPlan;
    cPlan.Build(PlanStreams(), cSource);
    EXPECT_EQ(cPlan.Step(kRel, 6), nullptr);
    EXPECT_EQ(cPlan.Merges(), 1u);
}

TEST(MergePlanTest, TheTrailerNamesOneChangeOrARange)
{
    EXPECT_EQ(IntegratedTrailer("//depot/rel1", 12, 12), "Perforce-Integrated: //depot/rel1/...@12");
    EXPECT_EQ(IntegratedTrailer("//depot/rel1", 10, 12), "Perforce-Integrated: //depot/rel1/...@10,@12");
    EXPECT_EQ(
        CommitMessage("Fix", 14, "//depot/main", {IntegratedTrailer("//depot/rel1", 12, 12)}),
        "Fix\n\nPerforce-Change: 14\nPerforce-Path: //depot/main/...\nPerforce-Integrated: //depot/rel1/...@12\n");
}
