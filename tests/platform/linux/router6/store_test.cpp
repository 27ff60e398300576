// The router's stored configurations: the document, the pool's ownership rules, and a store
// that rewrites whole documents under its lock.
#include "blackbox/tempdir.h"
#include "router6/router6.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <tuple>

namespace {

namespace fs = std::filesystem;
using namespace tarnlinux::router6;

TEST(Document, RoundTrip) {
    Document document{"6in4",
                      "2001:db8:1200::/56",
                      "198.51.100.1",
                      "2001:db8:ff::2/64",
                      {{"lbr0", "2001:db8:1200::"}, {"ovpn", ""}},
                      Lifetimes{300, 600},
                      Moment{"boot", 12}};
    std::optional<Document> back = ParseDocument(DocumentText(document));
    ASSERT_TRUE(back);
    EXPECT_EQ(DocumentText(*back), DocumentText(document));
}

TEST(Document, Unreadable) {
    for (const char* text :
         {"", "not json", "[]", "{}", R"({"type": 1})", R"({"type": "native"} trailing)",
          R"({"type": "native", "prefix": "2001:db8::/129"})", R"({"type": "native", "prefix": "2001:db8::"})",
          R"({"type": "native", "consumers": {}})", R"({"type": "native", "consumers": [{"holds": ""}]})",
          R"({"type": "native", "consumers": [{"owner": "lbr0", "holds": "2001:db8::1"}]})",
          R"({"type": "native", "consumers": [{"owner": "lbr0"}, {"owner": "lbr0"}]})", R"({"type": "native", "type": "6in4"})"})
        EXPECT_FALSE(ParseDocument(text)) << text;
}

// Two interfaces: wan0 with lbr0 holding its first /64 and gbr0 holding nothing, wan1 with
// ovpn holding its second.
Documents Pool() {
    return {{"wan0", {"native", "2001:db8:1200::/56", "", "", {{"lbr0", "2001:db8:1200::"}, {"gbr0", ""}}, {}, {}}},
            {"wan1", {"native", "2001:db8:3400::/56", "", "", {{"ovpn", "2001:db8:3400:1::"}}, {}, {}}}};
}

std::string Text(const Documents& documents) {
    std::string text;
    for (const auto& [name, document] : documents) text += name + "\n" + DocumentText(document);
    return text;
}

// Each row: allocate (or release), prefix, owner, whether it is done, the interface whose
// document changes ("" for none).
TEST(Rules, Pool) {
    using Row = std::tuple<bool, const char*, std::string, bool, const char*>;
    const Row rows[] = {
        {true, "2001:db8:1200:1::", "gbr0", true, "wan0"},       // a free subnet
        {true, "2001:db8:1200::", "gbr0", false, ""},            // held by another
        {true, "2001:db8:3400:1::", "gbr0", false, ""},          // held by another on the other interface
        {true, "2001:db8:1200::", "lbr0", true, ""},             // already held by the owner
        {true, "2001:db8:1200:5::", "lbr0", false, ""},          // the owner still holds one
        {true, "2001:db8:9900::", "gbr0", false, ""},            // in no prefix
        {true, "2001:db8:1200:2::1", "gbr0", false, ""},         // not a subnet
        {true, "2001:db8:1200:2::", "", false, ""},              // no owner
        {true, "2001:db8:3400:2::", "gbr1", true, "wan1"},       // a new owner is appended
        {true, "2001:db8:1200:1::", "lo", false, ""},            // the loopback is no consumer
        {true, "2001:db8:1200:1::", "wan1", false, ""},          // nor is an upstream
        {true, "2001:db8:1200:1::", {"gbr0\0x", 6}, false, ""},  // nor a name the kernel cuts short
        {false, "2001:db8:1200::", "lbr0", true, "wan0"},        // released
        {false, "2001:db8:1200:0:0::", "lbr0", true, "wan0"},    // released, spelled otherwise
        {false, "2001:db8:1200::", "gbr0", false, ""},           // not held
        {false, "", "gbr0", true, ""},                           // nothing, holding nothing
        {false, "", "lbr0", false, ""},                          // nothing, while holding
        {false, "", "nobody", true, ""},                         // nothing, unlisted
    };
    for (const auto& [allocate, prefix, owner, done, changed] : rows) {
        Documents documents = Pool(), expected = Pool();
        std::string ifname = "unset", error;
        Allocation allocation;
        EXPECT_EQ(allocate ? AllocateIn(documents, Context{}, prefix, owner, allocation, error)
                           : DeallocateIn(documents, "", prefix, owner, ifname, error),
                  done)
            << prefix << " " << owner << ": " << error;
        if (done && *changed != '\0') {
            EXPECT_EQ(allocate ? allocation.ifname : ifname, changed) << prefix << " " << owner;
            std::vector<Consumer>& consumers = expected[changed].consumers;
            auto held = std::find_if(consumers.begin(), consumers.end(),
                                     [&, &owner = owner](const Consumer& c) { return c.owner == owner; });
            if (held == consumers.end()) held = consumers.insert(held, {owner, ""});
            held->holds = allocate ? prefix : "";
        }
        EXPECT_EQ(Text(documents), Text(expected)) << prefix << " " << owner;
    }
}

// Overlapping delegations: wan0's stored first, wan1's inside it later. Each row: the run's
// interface, its boot, the /64, whether it is allocated and in which document.
TEST(Rules, RunAndOverlap) {
    using Row = std::tuple<const char*, const char*, const char*, bool, const char*>;
    const Row rows[] = {
        {"wan0", "b", "2001:db8:1200:1::", true, "wan0"},  // the run's document, not the longest prefix's
        {"wan1", "b", "2001:db8:1200:2::", false, ""},     // the later delegation is refused
        {"wan1", "c", "2001:db8:1200:2::", true, "wan1"},  // unless the earlier one ran out
    };
    for (const auto& [run, boot, prefix, done, home] : rows) {
        Documents documents = {
            {"wan0", {"native", "2001:db8:1200::/56", "", "", {}, Lifetimes{60, 60}, Moment{"b", 10}}},
            {"wan1", {"native", "2001:db8:1200::/60", "", "", {}, Lifetimes{60, 60}, Moment{"c", 20}}},
        };
        Allocation allocation;
        std::string error;
        EXPECT_EQ(AllocateIn(documents, Context{run, "", Moment{boot, 30}}, prefix, "gbr0", allocation, error), done)
            << run << " " << prefix << ": " << error;
        EXPECT_EQ(documents[home].consumers.size(), done ? 1u : 0u) << run << " " << prefix;
    }
}

// Each row: the stored lifetimes (none: permanent), when they came, now, and what is left.
TEST(Lifetimes, Remaining) {
    using Row = std::tuple<std::optional<Lifetimes>, Moment, Moment, uint32_t, uint32_t>;
    const Row rows[] = {
        {std::nullopt, {"b", 10}, {"b", 5000}, kForever, kForever},
        {Lifetimes{3600, 7200}, {"b", 10}, {"b", 110}, 3500, 7100},
        {Lifetimes{3600, 7200}, {"b", 10}, {"b", 5010}, 0, 2200},
        {Lifetimes{kForever, kForever}, {"b", 10}, {"b", 5010}, kForever, kForever},
        {Lifetimes{3600, 7200}, {"b", 10}, {"c", 20}, 0, 0},  // stored in another boot
        {Lifetimes{3600, 7200}, {"b", 10}, {"b", 5}, 3600, 7200},
    };
    for (const auto& [lifetimes, received, now, preferred, valid] : rows) {
        Document document;
        document.lifetimes = lifetimes;
        document.received = received;
        Lifetimes left = Remaining(document, now);
        EXPECT_EQ(left.preferred, preferred) << received.seconds << " " << now.seconds;
        EXPECT_EQ(left.valid, valid) << received.seconds << " " << now.seconds;
    }
}

class StoreTest : public ::testing::Test {
protected:
    void Put(const std::string& ifname, const std::string& text) {
        fs::create_directories(dir());
        std::ofstream(dir() / ifname) << text;
    }
    fs::path dir() const { return root_ / "ipv6-router"; }
    Store MakeStore() {
        return Store(dir(), root_ / "run" / "store.lock",
                     [this](const std::string& owner, const std::string& prefix, AddressOp op, const Lifetimes&) {
                         std::optional<Document> stored = ParseDocument(blackbox::ReadFile(dir() / "wan0"));
                         calls_.push_back((op == AddressOp::kRemove ? "-" : "+") + owner + " " + prefix +
                                          (stored ? " recorded " + stored->consumers[0].holds : ""));
                         return hookResult_;
                     });
    }

    blackbox::TempDir tmp_;
    fs::path root_{tmp_.Path()};
    std::vector<std::string> calls_;
    bool hookResult_ = true;
};

// A rewrite replaces the whole document and leaves nothing beside it; an address the kernel
// refuses keeps the record (the next run makes it); an unreadable document is left as it was
// and fails only the calls on its own interface.
TEST_F(StoreTest, RewritesWholeDocumentsOnly) {
    Put("wan0", R"({"type": "native", "prefix": "2001:db8:1200::/56", "consumers": [{"owner": "lbr0"}]})");
    Put("wan1", "{ torn");
    Store store = MakeStore();
    store.BeginRun("wan0");
    hookResult_ = false;
    ASSERT_TRUE(store.Allocate("2001:db8:1200::", "lbr0"));
    std::optional<Document> document = store.Load("wan0");
    ASSERT_TRUE(document);
    EXPECT_EQ(document->consumers[0].holds, "2001:db8:1200::");
    EXPECT_FALSE(store.Load("../wan0"));
    struct stat info;
    ASSERT_EQ(stat((dir() / "wan0").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0644u);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir()), fs::directory_iterator()), 2);
    store.EndRun();

    EXPECT_FALSE(store.Load("wan1"));
    EXPECT_FALSE(store.Update("wan1", [](Document&) { return true; }));
    EXPECT_EQ(blackbox::ReadFile(dir() / "wan1"), "{ torn");
}

// A new /64: the old address goes while the record still names it, the new one comes once the
// record names it, so that a kill in between leaves no address the record does not name.
TEST_F(StoreTest, AddressesFollowTheRecord) {
    Put("wan0",
        R"({"type": "native", "prefix": "2001:db8:3400::/56", "consumers": [{"owner": "lbr0", "holds": "2001:db8:1200::"}]})");
    Store store = MakeStore();
    store.BeginRun("wan0");
    ASSERT_TRUE(store.Deallocate("2001:db8:1200::", "lbr0"));
    ASSERT_TRUE(store.Allocate("2001:db8:3400::", "lbr0"));
    EXPECT_EQ(calls_, (std::vector<std::string>{"-lbr0 2001:db8:1200:: recorded 2001:db8:1200::",
                                                "+lbr0 2001:db8:3400:: recorded 2001:db8:3400::"}));
}

}  // namespace
