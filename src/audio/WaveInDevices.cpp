// Which wave input device a number or a name stands for: the one place that knows the back
// ends, so that the device interface itself knows none of them.
#include <cmath>
#include <cstdlib>

#include "audio/AlsaErrors.h"
#include "audio/AlsaPcm.h"
#include "audio/AlsaWaveIn.h"
#include "audio/WaveInDevice.h"

std::string CWaveInDevice::DeviceName(int iDevice) {
    return qk::AlsaPcmName(iDevice, "QK_ALSA_CAPTURE_DEVICE", "Input");
}

int CWaveInDevice::DeviceCount() {
    return static_cast<int>(qk::AlsaPcmNames("Input").size());
}

std::unique_ptr<CWaveInDevice> CWaveInDevice::Create(int iDevice) {
    const std::string name = DeviceName(iDevice);
    return name.empty() ? nullptr : CreateByName(name);
}

std::unique_ptr<CWaveInDevice> CWaveInDevice::CreateByName(const std::string &strName) {
    if (strName == "virtual") {
        return std::make_unique<CVirtualWaveIn>();
    }
    if (strName.rfind("virtual:", 0) == 0) {
        const double life = std::strtod(strName.c_str() + 8, nullptr);
        return std::make_unique<CVirtualWaveIn>(std::isfinite(life) && life > 0.0 ? life : 0.0);
    }
    qk::InstallAlsaErrorHandler();  // ALSA's texts never go to standard error
    return std::make_unique<CAlsaWaveIn>(strName);
}
