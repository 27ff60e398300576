#include "multigateway/alias.h"

#include "conventions.h"
#include "tarnnetsdk.h"

#include <arpa/inet.h>

#include <cstdio>
#include <cstring>
#include <sstream>

namespace multigateway {
namespace {

constexpr char kIfconfig[] = "/sbin/ifconfig";
constexpr int kTokenListSize = 512;
constexpr int kAliasAddressSize = 20;

// Owns the output stream of a started program; closing it also collects the program.
class ProgramOutput {
public:
    explicit ProgramOutput(FILE* stream) : stream_(stream) {}
    ~ProgramOutput() {
        if (stream_ != nullptr) TLIBCPclose(stream_);
    }
    ProgramOutput(const ProgramOutput&) = delete;
    ProgramOutput& operator=(const ProgramOutput&) = delete;

    FILE* get() const { return stream_; }

private:
    FILE* stream_;
};

// The two forms of address line that ifconfig prints: "inet addr:192.0.2.10  Mask:..." and,
// in newer versions, "inet 192.0.2.10  netmask ...".
enum class LineForm { kFailed, kNone, kInetAddr, kInet };

bool IsDottedAddress(const char* text) {
    in_addr address{};
    return inet_pton(AF_INET, text, &address) == 1;
}

bool IsInetLine(const char* line) {
    std::istringstream words(line);
    std::string first, second;
    words >> first >> second;
    return first == "inet" && IsDottedAddress(second.c_str());
}

// Reads the output up to the first "inet addr" line; only when there is none does the first
// line of the newer form count. The chosen line is left in `line`.
LineForm ReadAddressLine(const std::string& ifname, char* line) {
    ProgramOutput output(TLIBCPopen(kIfconfig, "r", ifname.c_str(), static_cast<const char*>(nullptr)));
    if (output.get() == nullptr) {
        TOOL_LOG(LOG_ERR, "Failed to execute cmd [/sbin/ifconfig]");
        return LineForm::kFailed;
    }
    std::string inetLine;
    while (std::fgets(line, kLineSize, output.get()) != nullptr) {
        if (std::strstr(line, "inet addr") != nullptr) return LineForm::kInetAddr;
        if (inetLine.empty() && IsInetLine(line)) inetLine = line;
    }
    if (inetLine.empty()) return LineForm::kNone;
    std::snprintf(line, kLineSize, "%s", inetLine.c_str());
    return LineForm::kInet;
}

// The word that carries the address: "addr:192.0.2.10" in the classic form, the first dotted
// address in the newer one.
const char* AddressWord(const SzList& words, LineForm form) {
    for (int i = 0; i < words.count(); ++i) {
        const char* word = TLIBCSzListGet(words.get(), i);
        if (word == nullptr) continue;
        if (form == LineForm::kInetAddr ? std::strstr(word, "addr") != nullptr : IsDottedAddress(word)) return word;
    }
    return nullptr;
}

}  // namespace

AddressLookup GetIfconfigAddress(const std::string& ifname, char* line) {
    LineForm form = ReadAddressLine(ifname, line);
    if (form == LineForm::kFailed) return AddressLookup::kFailed;
    if (form == LineForm::kNone) return AddressLookup::kNoAddress;
    SzList words(kTokenListSize);
    if (!words) {
        TOOL_LOG(LOG_ERR, "Failed to alloc memory.");
        return AddressLookup::kFailed;
    }
    TLIBCStrSep(line, " ", words.address());
    const char* word = AddressWord(words, form);
    if (word == nullptr) return AddressLookup::kNoAddress;
    std::snprintf(line, kLineSize, "%s", word);
    TLIBCStrReplace(line, "addr:", "", 0, kLineSize);
    // An address that ends the ifconfig line still carries the line end.
    line[std::strcspn(line, "\r\n")] = '\0';
    return line[0] != '\0' ? AddressLookup::kFound : AddressLookup::kNoAddress;
}

std::string BuildTableSource(const std::string& ifname, const char* address, SzList& aliases) {
    std::string source = address;
    if (TARNNetIpAliasList(ifname.c_str(), aliases.address()) != 0) return source;
    for (int i = 0; i < aliases.count(); ++i) {
        char alias[kAliasAddressSize] = {};
        int prefixLength = 0;
        TARNNetSeperateSubnet(TLIBCSzListGet(aliases.get(), i), alias, kAliasAddressSize, &prefixLength);
        // An alias without an address part still keeps its place, as an empty element.
        source.append(",").append(alias, strnlen(alias, sizeof alias));
    }
    return source;
}

}  // namespace multigateway
