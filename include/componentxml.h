// Package description: the XML file in the component directory.
#pragma once

#include "types.h"
#include "zalph/str.h"

class CZalXMLNode;
class CZalXMLReader;

// Finds, reads and answers from the package description. Texts point into the document and live as long as the object.
// What is absent gives the empty text, with one log line; a null result is named where it can occur.
class FLASHLIB_API CComponentXML
{
  public:
    CComponentXML();
    virtual ~CComponentXML();
    CComponentXML(const CComponentXML&) = delete;
    CComponentXML& operator=(const CComponentXML&) = delete;

    // Reads "qx*.xml", else "*.xml", of the component directory; FALSE when there is none, or it is no package
    // description. Called once.
    BOOL Initialize();

    // Name, alternative name in a language ("en"), else in English from anywhere in the document, else null.
    LPCTSTR GetName(LPCTSTR lang);
    LPCTSTR GetAltName(LPCTSTR lang);

    // Null when the version element lacks the attribute.
    LPCTSTR GetVersion();
    LPCTSTR GetRevision();

    // "1.2(B)": version and revision, as far as they are there.
    CStr GetCombinedVersion();

    // Name of the first software key; null when it has none.
    LPCTSTR GetFirmwareKey();

    // Expected path of the first software key, e.g. "firmware:sd:rom".
    LPCTSTR GetFirmwareType();

  protected:
    // What the accessors above are made of. The text of an element in a language, as GetName finds it: empty when there
    // is no such element, null when it has no translation. The first software key, null when there is none.
    LPCTSTR GetTranslatedValue(LPCTSTR element, LPCTSTR lang);
    CZalXMLNode* GetFirstSwKey();

    CZalXMLReader* m_pReader;    // owned
    CZalXMLNode* m_pZalPackage;  // owned by the reader; null until Initialize succeeds
};
