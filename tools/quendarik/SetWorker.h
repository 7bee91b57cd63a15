// One worker of quendarik precompute: its own material session, world, HRTF set and image
// model, so that workers share nothing while they compute. Each response is written under a
// temporary name and renamed, so that a set never holds half a file.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ShardPlan.h"
#include "binaural/CHELPER_HRTF.h"
#include "world/CDSC_World.h"
#include "world/Code4.h"

class CSFM;

namespace qkcli {

// What every worker is given: the arguments naming the world, the set, the order.
struct SetRecipe {
    std::vector<std::string> world;  // FILE.txt|FILE.qkworld, or --room W D H
    std::string hrtf;
    int order = 1;
};

// The file name of a response (the listener looks along +y).
std::string SetFileName(const SetJob &job);

class SetWorker {
  public:
    explicit SetWorker(const SetRecipe &recipe);
    ~SetWorker();
    SetWorker(const SetWorker &) = delete;
    SetWorker &operator=(const SetWorker &) = delete;

    // False when the world or the HRTF set could not be made.
    bool Ready() const { return m_bReady; }
    // The response of a job: left samples, then right, in float scale; frames in frames.
    // False when the model gives none.
    bool Compute(const SetJob &job, std::vector<float> &block, int &frames);
    // Computes a job and writes its file into folder; false when either fails.
    bool Write(const SetJob &job, const std::string &folder);

  private:
    // Kills the program once as many files as QK_PRECOMPUTE_KILL_AFTER asks are whole.
    static void StopWhenAsked();

    // The material session, closed after the world that uses it is gone.
    struct Session {
        Session() { qk::table::code4initLow(&code); }
        ~Session() { qk::table::code4initUndo(&code); }
        qk::table::Code4 code;
    };

    const SetRecipe &m_recipe;
    Session m_session;
    CDSC_World m_world;
    CHELPER_HRTF m_set;
    std::unique_ptr<CSFM> m_model;
    std::vector<float> m_block;
    bool m_bReady = false;
};

// True when the world of the recipe loads and generates. Run once on the main thread before
// any worker starts: the material tables a world makes when they are missing are then made by
// one thread alone.
bool RecipeWorldLoads(const SetRecipe &recipe);

}  // namespace qkcli
