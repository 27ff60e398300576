// Gateway actions: queries and changes of the network daemon's gateway records, and the DUID.
#ifndef TARNNETDTOOL_GATEWAY_GATEWAY_H
#define TARNNETDTOOL_GATEWAY_GATEWAY_H

int GetGatewayListData(int argc, char** argv);
int GetGatewayDataByInterface(int argc, char** argv);
int GetInterfaceByClass(int argc, char** argv);
int IsServerReady(int argc, char** argv);
int AddGatewayInfo(int argc, char** argv);
int DelGatewayInfo(int argc, char** argv);
int CopyGatewayInfo(int argc, char** argv);
int RefreshGateway(int argc, char** argv);
int SetSlaveData(int argc, char** argv);
int ResetIPv6Module(int argc, char** argv);
int GenDUID(int argc, char** argv);

#endif
