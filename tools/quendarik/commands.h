#pragma once

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

}  // namespace qkcli
