// Which wave output device a number or a name stands for: the one place that knows the back
// ends, so that the device interface itself knows none of them.
#include "audio/AlsaErrors.h"
#include "audio/AlsaPcm.h"
#include "audio/AlsaWaveOut.h"
#include "audio/VirtualWaveOut.h"
#include "audio/WaveOutDevice.h"

std::string CWaveOutDevice::DeviceName(int iDevice) {
    return qk::AlsaPcmName(iDevice, "QK_ALSA_DEVICE", "Output");
}

std::unique_ptr<CWaveOutDevice> CWaveOutDevice::Create(int iDevice) {
    const std::string name = DeviceName(iDevice);
    return name.empty() ? nullptr : CreateByName(name);
}

std::unique_ptr<CWaveOutDevice> CWaveOutDevice::CreateByName(const std::string &strName) {
    if (strName == "virtual") {
        return std::make_unique<CVirtualWaveOut>();
    }
    qk::InstallAlsaErrorHandler();  // ALSA's texts never go to standard error
    return std::make_unique<CAlsaWaveOut>(strName);
}
