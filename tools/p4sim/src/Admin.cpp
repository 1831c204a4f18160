#include "Admin.h"

#include "History.h"
#include "Store.h"
#include "Util.h"

#include <cstdio>
#include <fstream>
#include <iostream>

namespace p4sim {

namespace {

const char* kUsage =
    "usage: p4sim admin init DIR\n"
    "       p4sim admin load DIR HISTORY.json\n"
    "       p4sim admin generate DIR [--changes N] [--branches B] [--files F] [--seed S] [--json FILE]\n";

int Init(const std::string& dir)
{
    MakeDirs(dir);
    if (FileExists(Store::DbPath(dir))) {
        std::cerr << "p4sim: a server already exists in " << dir << "\n";
        return 1;
    }
    Store s(dir, true);
    return 0;
}

int Submit(const std::string& dir, const History& h)
{
    MakeDirs(dir);
    bool fresh = !FileExists(Store::DbPath(dir));
    Store s(dir, fresh);
    s.Begin(true);
    try {
        SubmitHistory(s, h);
        s.Commit();
        // A history arrives as one large transaction, all of it in the
        // write-ahead log: fold it into the database once, so that every
        // later command starts from a short log.
        s.Checkpoint();
    } catch (...) {
        s.Rollback();
        throw;
    }
    return 0;
}

long long NumberArg(const std::vector<std::string>& a, size_t& i)
{
    if (i + 1 >= a.size()) throw std::runtime_error(a[i] + " needs a value");
    long long v;
    if (!ParseUInt(a[i + 1], v)) throw std::runtime_error(a[i] + ": not a number: " + a[i + 1]);
    ++i;
    return v;
}

}  // namespace

int RunAdmin(const std::vector<std::string>& args)
{
    try {
        if (args.size() == 2 && args[0] == "init") return Init(args[1]);
        if (args.size() == 3 && args[0] == "load") {
            nlohmann::json j;
            try {
                j = nlohmann::json::parse(ReadWholeFile(args[2]));
            } catch (const nlohmann::json::exception& e) {
                throw std::runtime_error(args[2] + ": " + e.what());
            }
            return Submit(args[1], ParseHistory(j));
        }
        if (args.size() >= 2 && args[0] == "generate") {
            GenerateOptions opt;
            std::string jsonOut;
            for (size_t i = 2; i < args.size(); ++i) {
                if (args[i] == "--changes") opt.changes = NumberArg(args, i);
                else if (args[i] == "--branches") opt.branches = NumberArg(args, i);
                else if (args[i] == "--files") opt.files = NumberArg(args, i);
                else if (args[i] == "--seed") opt.seed = (unsigned long long)NumberArg(args, i);
                else if (args[i] == "--json" && i + 1 < args.size()) jsonOut = args[++i];
                else throw std::runtime_error("unknown option " + args[i]);
            }
            History h = GenerateHistory(opt);
            if (!jsonOut.empty()) {
                std::ofstream f(jsonOut, std::ios::binary | std::ios::trunc);
                if (!f) throw std::runtime_error("cannot write " + jsonOut);
                f << HistoryToJson(h).dump(1) << "\n";
            }
            return Submit(args[1], h);
        }
    } catch (const std::exception& e) {
        std::cerr << "p4sim admin: " << e.what() << "\n";
        return 1;
    }
    std::cerr << kUsage;
    return 2;
}

}  // namespace p4sim
