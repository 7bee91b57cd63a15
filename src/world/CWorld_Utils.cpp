#include "world/CWorld_Utils.h"

#include "world/CDSC_World.h"

namespace {
struct Corner {
    int id;
    const char *x;
    const char *y;
    const char *z;
};

struct Plane {
    int id;
    const char *name;
    const char *image;
    const char *material;
    int corners[4];
};

template <size_t NC, size_t NP>
void build(CDSC_World *pWorld, const Corner (&corners)[NC], const Plane (&planes)[NP]) {
    CDSC_Scene *scene = nullptr;
    pWorld->InsertScene(scene, "main", "description");
    for (const Corner &c : corners) {
        scene->InsertPoint(c.id, c.x, c.y, c.z);
    }
    for (const Plane &p : planes) {
        CVRPlane *plane = nullptr;
        scene->InsertPlane(plane, p.id, p.name, p.material);
        plane->m_strImage = p.image;
        for (int id : p.corners) {
            plane->InsertPoint(std::to_string(id));
        }
    }
    // A dimension that doesn't evaluate leaves the flat lists empty; nobody is told here.
    pWorld->Generate();
}
}  // namespace

void CWorld_Utils::Generate_ShoeBox(CDSC_World *pWorld, const std::string &w, const std::string &d,
                                    const std::string &h) {
    if (pWorld == nullptr) {
        return;
    }
    static const Corner kCorners[] = {{1, "-w/2", "-d/2", "0"},  {2, "-w/2", "d/2", "0"},
                                      {3, "w/2", "d/2", "0"},    {4, "w/2", "-d/2", "0"},
                                      {11, "-w/2", "-d/2", "h"}, {12, "-w/2", "d/2", "h"},
                                      {13, "w/2", "d/2", "h"},   {14, "w/2", "-d/2", "h"}};
    static const Plane kPlanes[] = {{1, "floor", "floor.bmp", "abs_floor", {4, 3, 2, 1}},
                                    {2, "ceiling", "ceiling.bmp", "abs_ceiling", {11, 12, 13, 14}},
                                    {3, "back_wall", "wall.bmp", "abs_wall", {1, 11, 14, 4}},
                                    {4, "front_wall", "wall.bmp", "abs_wall", {3, 13, 12, 2}},
                                    {5, "left_wall", "wall.bmp", "abs_wall", {2, 12, 11, 1}},
                                    {6, "right_wall", "wall.bmp", "abs_wall", {4, 14, 13, 3}}};
    pWorld->ClearPlanes();
    pWorld->InsertConstant("w", w, "Width", 1);
    pWorld->InsertConstant("d", d, "Depth", 1);
    pWorld->InsertConstant("h", h, "Height", 1);
    build(pWorld, kCorners, kPlanes);
}

void CWorld_Utils::Generate_Trapezium(CDSC_World *pWorld, const std::string &wf,
                                      const std::string &wb, const std::string &d,
                                      const std::string &h) {
    if (pWorld == nullptr) {
        return;
    }
    static const Corner kCorners[] = {{1, "-wf", "0", "0"},   {2, "-wf", "d", "0"},
                                      {3, "wb/2", "d", "0"},  {4, "wf/2", "0", "0"},
                                      {11, "-wf", "0", "h"},  {12, "-wf", "d", "h"},
                                      {13, "wb/2", "d", "h"}, {14, "wf/2", "0", "h"}};
    static const Plane kPlanes[] = {{1, "floor", "floor.bmp", "abs_floor", {4, 3, 2, 1}},
                                    {2, "ceiling", "ceiling.bmp", "abs_ceiling", {11, 12, 13, 14}},
                                    {3, "stage_wall", "wall.bmp", "abs_wall", {1, 11, 14, 4}},
                                    {4, "rear_wall", "wall.bmp", "abs_wall", {3, 13, 12, 2}},
                                    {5, "left_wall", "wall.bmp", "abs_wall", {2, 12, 11, 1}},
                                    {6, "right_wall", "wall.bmp", "abs_wall", {4, 14, 13, 3}}};
    pWorld->ClearPlanes();
    pWorld->InsertConstant("wf", wf, "Width Front", 1);
    pWorld->InsertConstant("wb", wb, "Width Back", 1);
    pWorld->InsertConstant("d", d, "Depth", 1);
    pWorld->InsertConstant("h", h, "Height", 1);
    build(pWorld, kCorners, kPlanes);
}
