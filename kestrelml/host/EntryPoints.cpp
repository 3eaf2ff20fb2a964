#include "kestrelml/host/EntryPoints.h"

int KCFStartup() {
    return 0;
}
int KCFShutdown() {
    return 0;
}
int KCFRegisterPlugin() {
    return 0;
}
int KCFRegisterComponent() {
    return 0;
}
int KCFGetClassFactory() {
    return 0;
}
int KCFCanUnloadNow() {
    return 0;
}
