// A stand-in for the settings-dialog module: it records how the facade called it, and the
// tests read the record back through the loader.
extern "C" {
__attribute__((visibility("default"))) void *g_pDlgSdk = nullptr;
__attribute__((visibility("default"))) int g_iDlgArg = 0;
__attribute__((visibility("default"))) int g_iDlgCalls = 0;

__attribute__((visibility("default"))) void dlgQKSDKSettings(void *pSdk, int iArg) {
    g_pDlgSdk = pSdk;
    g_iDlgArg = iArg;
    ++g_iDlgCalls;
}
}
