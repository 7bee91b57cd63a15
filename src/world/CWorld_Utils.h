// The two generated rooms, made in the expression form of a world: constants named after the
// dimensions, eight corners in those constants, six planes with the default materials. A
// changed constant and a new Generate resize the room.
#pragma once

#include <string>

class CDSC_World;

class CWorld_Utils {
  public:
    // A box w wide (x), d deep (y), h high (z), centred on x = 0 and y = 0, floor at z = 0,
    // every normal pointing into the room. The dimensions are expression texts.
    static void Generate_ShoeBox(CDSC_World *pWorld, const std::string &w, const std::string &d,
                                 const std::string &h);
    // A plan with its left wall at x = -wf and its right wall leaning from x = wf/2 at the
    // front (y = 0) to x = wb/2 at the back (y = d). The room is not symmetric about x = 0 and
    // wb reaches only the right wall: that is the room hosts have always been given.
    static void Generate_Trapezium(CDSC_World *pWorld, const std::string &wf, const std::string &wb,
                                   const std::string &d, const std::string &h);
};
