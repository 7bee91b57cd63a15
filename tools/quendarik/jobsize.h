// The size of a job, worked out before it starts: the bytes it will write against the room on
// the file system that is to hold them, and against what one WAV file can hold. A job that
// can't fit is refused with its figures, unless the user forces it.
#pragma once

#include <cstdint>
#include <string>

namespace qkcli {

// A RIFF WAVE file counts its bytes in 32 bits: the whole file holds at most this many.
constexpr double kWaveFileMaxBytes = 4294967295.0;
// Bytes of the header the wave sink writes before the samples ("RIFF", "fmt ", "fact",
// "data").
constexpr double kWaveHeaderBytes = 58.0;

// Bytes of a PCM WAV of that many seconds, channels and bits at the rate, header included.
double WaveFileBytes(double dSeconds, int iRate, int iChannels, int iBits);

// Bytes the file system holding strPath (a file to be made, or a folder) has free for this
// user; the folder is the nearest one of its parents that exists. -1 when it can't be told.
double FreeBytes(const std::string &strPath);

// "3.95 GB", "512 kB", "200 B": decimal units, three figures.
std::string FormatBytes(double dBytes);

// What a job will write, for the check below.
struct JobSize {
    std::string strWhat;    // the job in words, for the message: "2 s of 16-bit stereo"
    std::string strPath;    // the file or folder it writes to
    double dBytes = 0.0;    // bytes it will write there
    bool bOneWave = false;  // the bytes go into one WAV file (its 32-bit sizes limit them)
};

// True when the job fits: within one WAV file's limit when it is one, and within the free
// room of its file system (unless bForce). Otherwise false, with strMessage saying why, with
// the figures, in one line without the program's name.
bool JobFits(const JobSize &job, bool bForce, std::string &strMessage);

// JobFits, telling a refusal on standard error as "quendarik COMMAND: MESSAGE".
bool CheckJob(const char *pcCommand, const JobSize &job, bool bForce);

}  // namespace qkcli
