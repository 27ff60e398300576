// The daemon's operations over the records, the record file and the kernel; knows nothing of
// the bus. Each takes the request document and answers an Outcome.
#ifndef TARNNETD_SERVICE_H
#define TARNNETD_SERVICE_H

#include "records.h"

#include <json/value.h>

#include <functional>
#include <optional>
#include <string>

namespace tarnnetd {

struct Outcome {
    enum Kind { kDone, kInvalid, kNotFound, kFailed };
    Kind kind;
    std::string text;  // the reply document when done, else a one-line reason
};

class Service {
public:
    explicit Service(std::string path) : path_(std::move(path)) {}

    // Reads the record file; false (with a reason) when the daemon must not start.
    bool Load(std::string& error);

    Outcome List(const Json::Value& request) const;
    Outcome ByInterface(const Json::Value& request) const;
    Outcome Add(const Json::Value& request);
    Outcome Delete(const Json::Value& request);
    Outcome Copy(const Json::Value& request);
    Outcome SetSlave(const Json::Value& request);
    Outcome Refresh(const Json::Value& request);
    Outcome ResetIPv6Module(const Json::Value& request);

    // The uplinks' tracked state as JSON, for any caller.
    Outcome UplinkState(const Json::Value& request) const;

    // Chooses both families' default routes again, logging what the kernel refuses.
    void RefreshAll();
    const Records& Current() const { return records_; }

    // What tracking adds: the order of candidates (lower tiers first, by preference within a
    // tier), a word after every change of records, and the tracked state.
    struct Hooks {
        std::function<int(Family, const std::string&)> tier;
        std::function<void()> recordsChanged;
        std::function<Json::Value()> describe;
    };
    void SetHooks(Hooks hooks) { hooks_ = std::move(hooks); }

private:
    // Parses a change, applies it to a copy of the records, and commits the copy.
    template <typename Request, typename Apply>
    Outcome Change(const Json::Value& request, bool (*parse)(const Json::Value&, Request&, std::string&), Apply apply);
    // Writes `next` to disk, then takes it as the records and refreshes `family`.
    Outcome Commit(Records next, Family family);
    bool RefreshFamily(Family family, std::string& error) const;

    std::string path_;
    Records records_;
    Hooks hooks_;
    // Each family's list as last answered: a query of thousands of records costs its
    // serialisation once per change instead of once per call, so queries cannot crowd out changes.
    mutable std::optional<std::string> listed_[2];
};

}  // namespace tarnnetd

#endif
