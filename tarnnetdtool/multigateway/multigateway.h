// Multi-gateway (multi-WAN) policy routing for all WAN gateways, IPv4 and IPv6.
#ifndef TARNNETDTOOL_MULTIGATEWAY_MULTIGATEWAY_H
#define TARNNETDTOOL_MULTIGATEWAY_MULTIGATEWAY_H

int EnableMultiGateway(int argc, char** argv);
int DisableMultiGateway(int argc, char** argv);
int EnableMultiGatewayV6(int argc, char** argv);
int DisableMultiGatewayV6(int argc, char** argv);

#endif
