#include "conventions.h"
#include "route/route.h"

#include <iostream>
#include <optional>
#include <string>

using tarnnetwork::network::IP_TYPE;
using tarnnetwork::network::PolicyRoute;
using tarnnetwork::network::PolicyRouteRule;

namespace {

constexpr int kAddRuleArgc = 8;
constexpr int kDelRuleArgc = 5;
constexpr int kDisableArgc = 4;  // type interface
constexpr int kEnableArgc = 5;   // type interface source

enum class RuleChange { kAdd, kDelete };

// The argument count comes first, so a missing family is reported as too few arguments.
std::optional<IP_TYPE> ReadCountAndFamily(int argc, char** argv, int minimum) {
    if (!HasArgs(argc, minimum)) return std::nullopt;
    return ReadFamily(argv[2]);
}

void FillRule(PolicyRouteRule& rule, IP_TYPE family, char** argv) {
    rule.type = family;
    rule.service = argv[3];
    rule.interface = argv[4];
    rule.ip = std::string(argv[5]);
    if (family == tarnnetwork::network::IPV4) {
        rule.mask = std::string(argv[6]);
    } else {
        rule.prefix_length = argv[6];
    }
    rule.gateway = std::string(argv[7]);
}

// Add and delete differ only in the call; a failed delete is reported in the add wording,
// which scripts already match on.
int ChangeRule(int argc, char** argv, RuleChange change) {
    PolicyRoute route;
    PolicyRouteRule rule;
    std::optional<IP_TYPE> family = ReadCountAndFamily(argc, argv, change == RuleChange::kAdd ? kAddRuleArgc : kDelRuleArgc);
    if (!family) return kFail;
    int result = 0;
    if (change == RuleChange::kAdd) {
        FillRule(rule, *family, argv);
        result = route.AddRule(rule);
    } else {
        result = route.DeleteRule(*family, std::string(argv[3]), std::string(argv[4]));
    }
    if (result >= 0) return kOk;
    std::cerr << "Failed to add policy route rule for " << argv[4] << std::endl;
    TOOL_LOG(LOG_ERR, "Failed to add policy route rule for %s-table", argv[4]);
    return kFail;
}

// Enable, disable and refresh are the table reset with one or both steps; enabling never
// follows a failed disable. The family is echoed as typed after "IPV".
int ResetTable(int argc, char** argv, bool disable, bool enable) {
    PolicyRoute route;
    std::optional<IP_TYPE> family = ReadCountAndFamily(argc, argv, enable ? kEnableArgc : kDisableArgc);
    if (!family) return kFail;
    if (disable && route.DisableTable(*family, std::string(argv[3])) < 0) {
        std::cerr << "Failed to disable route table for " << argv[3] << " in IPV" << argv[2] << std::endl;
        TOOL_LOG(LOG_ERR, "Failed to disable route table for [%s] in IPV%s", argv[3], argv[2]);
        return kFail;
    }
    if (enable && route.EnableTable(*family, std::string(argv[3]), std::string(argv[4])) < 0) {
        std::cerr << "Failed to enable route table for " << argv[3] << " in IPV" << argv[2] << std::endl;
        TOOL_LOG(LOG_ERR, "Failed to enable route table for [%s] in IPV%s", argv[3], argv[2]);
        return kFail;
    }
    return kOk;
}

}  // namespace

int AddPolicyRouteRule(int argc, char** argv) { return ChangeRule(argc, argv, RuleChange::kAdd); }

int DelPolicyRouteRule(int argc, char** argv) { return ChangeRule(argc, argv, RuleChange::kDelete); }

int EnableRouteTable(int argc, char** argv) { return ResetTable(argc, argv, false, true); }

int DisableRouteTable(int argc, char** argv) { return ResetTable(argc, argv, true, false); }

int RefreshRouteTable(int argc, char** argv) { return ResetTable(argc, argv, true, true); }
