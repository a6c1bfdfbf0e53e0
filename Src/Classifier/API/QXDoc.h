// QXDoc.h - the document record that callers hand to the classifier.
//
// Part of the public interface (included by QXClassifier.h): the record is
// passed by reference across the library boundary, so its layout - five
// std::string fields in exactly this order - must not change. All fields are
// GBK text inside the library; they start empty.
//
// Thread-safety: a plain value type; callers own their records.
#pragma once

#include <string>

struct _stDoc {
    std::string sTitle;     // matched by TITLE and TEXT sub-rules
    std::string sContent;   // matched by CONTENT and TEXT sub-rules
    std::string sAuthor;    // compared whole by AUTHOR sub-rules
    std::string sBoard;     // compared whole by BOARD sub-rules
    std::string sDatatype;  // compared whole by DATATYPE sub-rules
};

// The public name of the record.
typedef _stDoc stDoc;
