// The simulated platform's recorder: the scenario it answers from and the journal it writes.
#ifndef TARN_PLATFORM_SIM_SIM_H
#define TARN_PLATFORM_SIM_SIM_H

#include <json/value.h>

#include <string>
#include <utility>

namespace sim {

// Starts afresh from a scenario file and a journal file (either may be null): "" when done,
// else the reason. The process does this from TARNSIM_SCENARIO and TARNSIM_JOURNAL at start.
std::string Load(const char* scenarioPath, const char* journalPath);

// The scenario's member `name` (null when absent).
const Json::Value& Scenario(const char* name);
// `value[key]` when `value` is an object, else null; never throws and never adds members.
const Json::Value& Member(const Json::Value& value, const std::string& key);

// The next value that the scenario's "results" scripts for `op`, or null when none is left.
Json::Value Scripted(const char* op);
// Scripted result of `op` when there is one, else `fallback`.
int IntResult(const char* op, int fallback);
bool BoolResult(const char* op, bool fallback);
std::string TextResult(const char* op, const std::string& fallback);
// A call with no side effect of its own: its scripted result or `fallback`, journaled with `args`.
int IntAnswer(const char* op, const Json::Value& args, int fallback);
bool BoolAnswer(const char* op, const Json::Value& args, bool fallback);
// Scripted pointer result: 1 for "ptr", 0 for null, -1 when nothing is scripted.
int PtrResult(const char* op);

// Appends one event to the journal; null `args` are left out of the line. The second form
// always writes "result", null included (a null pointer).
void Record(const char* op, const Json::Value& args = Json::Value());
void Record(const char* op, const Json::Value& args, const Json::Value& result);

// An array of the given values, for the "args" of an event.
template <typename... T>
Json::Value Args(T&&... values) {
    Json::Value args(Json::arrayValue);
    (args.append(Json::Value(std::forward<T>(values))), ...);
    return args;
}

// The journal form of a pointer result.
inline Json::Value Ptr(const void* p) { return p != nullptr ? Json::Value("ptr") : Json::Value(); }

}  // namespace sim

#endif
