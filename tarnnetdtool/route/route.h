// Policy route table and static route actions.
#ifndef TARNNETDTOOL_ROUTE_ROUTE_H
#define TARNNETDTOOL_ROUTE_ROUTE_H

int AddPolicyRouteRule(int argc, char** argv);
int DelPolicyRouteRule(int argc, char** argv);
int EnableRouteTable(int argc, char** argv);
int DisableRouteTable(int argc, char** argv);
int RefreshRouteTable(int argc, char** argv);
int GetRouteTables(int argc, char** argv);
int RefreshStaticRouteRules(int argc, char** argv);

#endif
