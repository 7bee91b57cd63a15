// The Python module's engine: the C interface's engine with the sources Python hands over
// as arrays, which it feeds block by block itself so that a whole render runs without the
// interpreter's lock.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <array>
#include <atomic>
#include <stdexcept>
#include <string>
#include <vector>

#include "quendarik/quendarik.h"

namespace qkpy {

namespace py = pybind11;
using Point = std::array<float, 3>;
using FloatArray = py::array_t<float, py::array::c_style | py::array::forcecast>;

// A failure of the library, with its message; raised in Python as quendarik.Error.
class Error : public std::runtime_error {
  public:
    Error(int iCode, const std::string &text) : std::runtime_error(text), m_iCode(iCode) {}
    int Code() const { return m_iCode; }

  private:
    int m_iCode;
};

// Raises Error with the library's text when result is a failure.
void Check(int result, const char *pcWhat);

class PyEngine {
  public:
    PyEngine(int iRate, int iBlock, py::object hrtf, int iThreads, const std::string &convolution,
             bool bLimiter);
    ~PyEngine();
    PyEngine(const PyEngine &) = delete;
    PyEngine &operator=(const PyEngine &) = delete;

    void Close();
    int Rate() const { return m_iRate; }
    int Block() const { return m_iBlock; }

    void SetRoom(float fWidth, float fDepth, float fHeight);
    void SetPreset(int iPreset);
    void LoadWorld(const std::string &path);
    void SetModel(int iModel, int iOrder);
    void SetHRTF(py::object hrtf);

    int AddArray(FloatArray samples, bool bLoop);
    int AddFile(const std::string &path);
    int AddNoise(float fRms);
    int AddHost();
    int AddVsource(int iSource, Point position);
    void Remove(int iVsource);
    void Move(int iVsource, Point position);
    void SetListener(Point position, float fYaw, float fPitch, float fRoll);

    py::array_t<float> Render(double dSeconds, py::object onBlock);
    py::array_t<float> Process(FloatArray block);
    py::array_t<float> Response(int iVsource);
    py::array_t<float> Echogram(int iVsource);

  private:
    // A source whose samples Python gave as an array: pushed a block at a time.
    struct ArraySource {
        int iID = 0;
        std::vector<float> samples;
        size_t uiAt = 0;
        bool bLoop = false;
    };

    qk_engine *Handle();
    // Marks the engine as rendering for the life of the object, so that what changes the
    // arrays' list is refused meanwhile (a render runs without the interpreter's lock).
    struct Busy {
        explicit Busy(PyEngine &engine);
        ~Busy();
        PyEngine &m_engine;
    };
    void NotBusy(const char *pcWhat) const;
    // Pushes each array source's next iFrames samples (silence past an unlooped end).
    int PushArrays(int iFrames);

    qk_engine *m_pEngine = nullptr;
    int m_iRate;
    int m_iBlock;
    std::vector<ArraySource> m_arrays;
    std::vector<int> m_hosts;  // host sources fed by Process, in the order added
    std::vector<float> m_chunk;
    std::atomic<bool> m_bBusy{false};
};

}  // namespace qkpy
