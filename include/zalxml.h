// Interface of the XML library: reads a document and answers simple questions about its elements.
#pragma once

#include "types.h"

// What CZalXMLReader::ParseFile returns.
enum
{
    XMLNoError = 0,
    XMLErrAlloc = 1,     // out of memory, or the document's entities expand beyond all measure
    XMLErrExisting = 2,  // no such file
    XMLErrFileOpen = 3,  // the file is there and can't be opened
    XMLErrFileRead = 4,  // opened and can't be read; a directory is such a file
    XMLErrXmlParse = 5,  // not well-formed
    XMLErrUnknown = 6,   // anything else: an empty file, elements nested too deep
};

// An element of a document; owned by the reader that parsed it. Texts are UTF-8 and live as long as the document.
class CZalXMLNode
{
  public:
    // The first direct child of that name, or null.
    FLASHLIB_API CZalXMLNode* GetFirstChild(LPCTSTR element);

    // The attribute's value, unescaped, or null when the element has no such attribute.
    FLASHLIB_API LPCTSTR GetAttribute(LPCTSTR name);

    // The element's own character data joined; never null.
    FLASHLIB_API const TCHAR* GetValue();
};

// Reads one document at a time. May be asked anything in any state: without a document every node is null.
class FLASHLIB_API CZalXMLReader
{
  public:
    CZalXMLReader();
    virtual ~CZalXMLReader();
    CZalXMLReader(const CZalXMLReader&) = delete;
    CZalXMLReader& operator=(const CZalXMLReader&) = delete;

    // Parses a file, in place of any document read before, and returns one of the codes above.
    ULONG ParseFile(LPCTSTR path);

    // TRUE when a document is loaded.
    bool IsValid();

    // The document: the node above the root element.
    CZalXMLNode* GetRootNode();

    // The first element in document order, anywhere below parent (null: the whole document), that has the given name
    // and whose attribute has the given value. A null attribute or a null value means no attribute test.
    CZalXMLNode* FindFirstChildOf(CZalXMLNode* parent, LPCTSTR element, LPCTSTR attribute, LPCTSTR value);

  private:
    struct CDocument* m_pDocument;
};
