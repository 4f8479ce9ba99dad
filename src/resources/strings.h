#pragma once

// The string table: every numbered text of the control, in English, under its numeric id.

#include <QString>

namespace qarvo::strings {

enum Id : int {
    NaqcDescription = 100,
    WmiDescription = 101,

    WmiPage1Title = 201,
    WmiPage1Subtitle = 202,
    WmiPage2Title = 203,
    WmiPage2Subtitle = 204,
    WqlPage2Title = 205,
    WqlPage2Subtitle = 206,
    WmiPage3Title = 207,
    WmiPage3Subtitle = 208,
    NaqcPage1Title = 209,
    NaqcPage1Subtitle = 210,
    NaqcPage2Title = 211,
    NaqcPage2Subtitle = 212,
    NaqcPage3Title = 213,
    NaqcPage3Subtitle = 214,

    FileBroken = 300,
    CannotOpenClassList = 301,
    CannotOpenFieldList = 302,
    SelectWmiClass = 303,
    SelectField = 304,
    FieldNotSupported = 305,
    ConditionEmpty = 306,
    ValueEmpty = 307,
    ArrayValueEmpty = 308,
    WqlNamespaceEmpty = 309,
    WqlSelectEmpty = 310,
    WqlFromEmpty = 311,
    WqlConditionEmpty = 312,
    WqlValueEmpty = 313,
    WqlFieldEmpty = 314,
    WqlFieldTypeEmpty = 315,

    NaqcSummaryHeading = 400,
    DuplicateRuleName = 401,
};

// The text of a string-table entry; empty for an id the table does not have.
QString text(int id);

// Message-box captions.
inline QString infoCaption() { return QStringLiteral("INFO"); }
inline QString errorCaption() { return QStringLiteral("ERROR"); }

} // namespace qarvo::strings
