#include "conventions.h"
#include "ipv6router/ipv6router.h"

#include <boost/lexical_cast.hpp>

#include <iostream>

using tarn::network::ipv6::router::Router6Attr;
using tarnnetwork::utils::AddressList;
using tarnnetwork::utils::IPAddress;

int GetIPv6RouterInterface(int argc, char** argv) {
    if (argc != 3) return kFail;
    Router6Attr attr;
    attr.ifname = argv[2];
    attr.LoadConfig();  // without a stored configuration the type stays empty
    if (attr.type == "6in4" || attr.type == "6to4") {
        std::cout << "6in4-" << argv[2] << std::endl;
    } else {
        std::cout << argv[2] << std::endl;
    }
    return kOk;
}

void CollectInternalNetworks(std::set<std::string>& set, AddressList (*query)(const std::string&)) {
    AddressList list = query("lbr0");
    AddressList more = query("gbr0");
    list.insert(list.end(), more.begin(), more.end());
    for (const auto& [network, length] : list) set.insert(network + "/" + boost::lexical_cast<std::string>(length));
}

int GetInternalNetwork(int, char**) {
    std::set<std::string> networks;
    CollectInternalNetworks(networks, IPAddress::GetIPv4Network);
    CollectInternalNetworks(networks, IPAddress::GetIPv6Network);
    for (const std::string& line : networks) std::cout << line << std::endl;
    return kOk;
}
