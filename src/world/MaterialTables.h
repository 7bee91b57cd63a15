// The two material tables, materials and materials_categories, in the Databases folder below
// the common folder: their fields, tags and default rows, and the few operations the system
// performs on them. A user may add rows of their own with any dBASE editor.
#pragma once

#include <string>
#include <vector>

#include "world/Code4.h"

class MaterialTables {
  public:
    // <common folder>/TORVELLAN/Common/Databases
    static std::string Folder();
    // The tables' paths without extension.
    static std::string MaterialsPath();
    static std::string CategoriesPath();

    static const std::vector<qk::table::FIELD4INFO> &MaterialFields();
    static const std::vector<qk::table::TAG4INFO> &MaterialTags();
    static const std::vector<qk::table::FIELD4INFO> &CategoryFields();
    static const std::vector<qk::table::TAG4INFO> &CategoryTags();

    // Makes sure path.dbf and path.cdx are there. Both present: nothing is done, 1. Only the
    // index: it is deleted and the table made anew, as with neither: 0. Only the table: its
    // index is made again, 0. A failure gives the table layer's (negative) code. A result of
    // 0 is the caller's sign to write the default rows.
    static int EnsureTable(qk::table::Code4 &code, const std::string &path,
                           const std::vector<qk::table::FIELD4INFO> &fields,
                           const std::vector<qk::table::TAG4INFO> &tags);

    // Makes the folder and both tables, writing the default rows into each table for which
    // EnsureTable gave 0. 0, or the first failure's code.
    static int EnsureDefaults(qk::table::Code4 &code);

    // Appends a material row: ID, MATERIAL, CATEGORY, IMAGE as given, COLOR and DESC empty,
    // the eight coefficients (percent, 125 Hz to 16 kHz) written with "%.0f". 0 or the code.
    static int AddMaterial(qk::table::Code4 &code, const std::string &path, int iID,
                           const std::string &strName, const std::string &strCategory,
                           const std::string &strImage, const float afCoeff[8]);
    static int AddCategory(qk::table::Code4 &code, const std::string &path, int iID,
                           const std::string &strName);

    // The text of one field in every record, in record order, trailing blanks removed.
    static int ListField(qk::table::Code4 &code, const std::string &path,
                         const std::string &strField, std::vector<std::string> &out);
};
