// A server history as `admin load` reads it from JSON and `admin generate`
// makes it, and its submission into the server state.
#pragma once

#include "Store.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace p4sim {

struct FileAction {
    std::string path;    // depot path as the file is named (unescaped)
    std::string action;  // add edit delete branch integrate move/add move/delete
    std::string type;    // empty: text for new files, else the previous type
    bool hasContent = false;
    std::string content;  // the bytes
    std::string from;     // source of branch, integrate, move/add (unescaped)
    long long fromRev = 0;  // 0: the source's head before this change
};

struct ChangeSpec {
    long long change = 0;  // 0: the next number
    std::string user, client;
    long long time = 0;
    std::string description;
    std::vector<FileAction> files;
};

struct History {
    std::vector<UserRec> users;
    std::vector<BranchRec> branches;
    std::vector<ClientRec> clients;
    std::vector<ChangeSpec> changes;
};

// Throws std::runtime_error with a readable message on a malformed history.
History ParseHistory(const nlohmann::json& j);
nlohmann::json HistoryToJson(const History& h);

// Submits the whole history into the store, inside the caller's
// transaction. Throws std::runtime_error when an action is impossible (an
// edit of a file that does not exist, say).
void SubmitHistory(Store& store, const History& h);

struct GenerateOptions {
    long long changes = 100;
    long long branches = 2;
    long long files = 50;
    unsigned long long seed = 1;
};

History GenerateHistory(const GenerateOptions& opt);

}  // namespace p4sim
