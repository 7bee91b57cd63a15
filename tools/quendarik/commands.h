#pragma once

#include <string>

class CDSC_World;

namespace qkcli {

// Each takes the arguments behind its own name and returns the program's exit code.
int RunDemo(int argc, char **argv);
int RunHrtf(int argc, char **argv);
int RunRender(int argc, char **argv);
int RunPlay(int argc, char **argv);
int RunBench(int argc, char **argv);
int RunWorld(int argc, char **argv);
int RunMaterials(int argc, char **argv);
int RunPrecompute(int argc, char **argv);
int RunIr(int argc, char **argv);
// A scene file (argv[0], .yaml) and options that override it: as a JACK client, rendered to a
// file, or played (on the default device, or JACK when the scene says so).
int RunLive(int argc, char **argv);
int RunSceneRender(int argc, char **argv);
int RunScenePlay(int argc, char **argv);
bool IsSceneFileName(const std::string &arg);

// Fills a world from the arguments FILE.txt|FILE.qkworld, --room W D H or --trapezium WF WB D H
// (metres); false, after a message for a missing file, when they name no world. The world
// still has to be generated.
bool LoadWorld(int argc, char **argv, CDSC_World &world, std::string &what);

}  // namespace qkcli
