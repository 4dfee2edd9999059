#pragma once

#include <array>

// The 21 host recipient fields in the order the mapping combos are filled: the mapping
// key, and the names and caption of the step's combo and label.
struct HostField
{
    const char* key;
    const char* comboName;
    const char* labelName;
    const char* caption;
};

inline constexpr std::array<HostField, 21> kHostFields = {{
    {"EMailAddress", "cmbEmail", "lblFMEmail", "&Email Address:"},
    {"FullNameMacro", "cmbFullNameMacro", "lblFMFullNameMacro", "&Full Name Macro:"},
    {"Title", "cmbTitle", "lblFMTitle", "&Title:"},
    {"FirstName", "cmbFirstName", "lblFMFirstName", "F&irst Name:"},
    {"Initial", "cmbInitial", "lblFMInitial", "Initi&al:"},
    {"LastName", "cmbLastName", "lblFMLastName", "La&st Name:"},
    {"Address1", "cmbAddress1", "lblFMAddress1", "Address &1:"},
    {"Address2", "cmbAddress2", "lblFMAddress2", "Address &2:"},
    {"City", "cmbCity", "lblFMCity", "Cit&y:"},
    {"State", "cmbState", "lblFMStateCounty", "State / C&ounty:"},
    {"Zip", "cmbZip", "lblFMZip", "&Zip / Post Code:"},
    {"Country", "cmbCountry", "lblFMCountry", "Co&untry:"},
    {"Company", "cmbCompanyName", "lblFMCompany", "Co&mpany Name:"},
    {"JobTitle", "cmbJobTitle", "lblFMJobTitle", "&Job Title:"},
    {"Web", "cmbWebURL", "lblFMWebURL", "&WEB URL:"},
    {"Telephone", "cmbTelephone", "lblFMTelephone", "Telep&hone:"},
    {"Fax", "cmbFax", "lblFMFax", "FA&X:"},
    {"Field1", "cmbAdditionalField1", "Label37", "Additional Field 1:"},
    {"Field2", "cmbAdditionalField2", "Label36", "Additional Field 2:"},
    {"Field3", "cmbAdditionalField3", "Label35", "Additional Field 3:"},
    {"Field4", "cmbAdditionalField4", "Label34", "Additional Field 4:"},
}};

inline constexpr const char* kFullNameMacroToolTip =
    "Select a single field that will be parsed to populate 'Title, FirstName, Initial and "
    "Last Name'";
