// The XML library on Expat.
#include "zalxml.h"

#include <expat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace
{

const std::size_t MaxDepth = 5000;
const std::size_t MaxContents = std::size_t{64} << 20;  // bytes kept of a document: default attributes multiply, too
const std::size_t ChunkSize = 65536;

struct CElement : CZalXMLNode
{
    std::deque<CElement>* pElements;  // all elements of the document, in document order
    std::size_t Index;                // this one's place there
    std::size_t End;                  // one past its last descendant's
    std::string Name;
    std::string Text;
    std::vector<std::pair<std::string, std::string>> Attributes;
};

CElement* AsElement(CZalXMLNode* node)
{
    return static_cast<CElement*>(node);
}

const std::string* FindAttribute(const CElement& element, const char* name)
{
    for (const auto& attribute : element.Attributes)
        if (attribute.first == name) return &attribute.second;
    return nullptr;
}

}  // namespace

struct CDocument
{
    std::deque<CElement> Elements;  // the first is the node above the root element
};

namespace
{

// Builds a document from Expat's events.
class CBuilder
{
  public:
    CBuilder() : m_pParser(XML_ParserCreate(nullptr)), m_pDocument(new CDocument), m_Error(XMLNoError)
    {
        if (!m_pParser) throw std::bad_alloc();
        XML_SetUserData(m_pParser.get(), this);
        XML_SetElementHandler(m_pParser.get(), OnStart, OnEnd);
        XML_SetCharacterDataHandler(m_pParser.get(), OnText);
        Open("", nullptr);
    }

    // Takes the next piece of the text; FALSE when it ends the parse.
    bool Feed(const char* data, std::size_t length, bool last)
    {
        if (XML_Parse(m_pParser.get(), data, static_cast<int>(length), last) == XML_STATUS_OK) return true;
        if (m_Error == XMLNoError) m_Error = ErrorCode(XML_GetErrorCode(m_pParser.get()));
        return false;
    }

    ULONG GetError() const { return m_Error; }

    CDocument* Finish()
    {
        Close();
        return m_pDocument.release();
    }

  private:
    struct FreeParser
    {
        void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
    };

    static ULONG ErrorCode(XML_Error error)
    {
        switch (error) {
            case XML_ERROR_NO_MEMORY:
#if XML_MAJOR_VERSION > 2 || XML_MINOR_VERSION >= 4  // an older Expat has no limit but ours
            case XML_ERROR_AMPLIFICATION_LIMIT_BREACH:
#endif
                return XMLErrAlloc;
            default:
                return XMLErrXmlParse;
        }
    }

    // Counts what is kept; the sum may not go beyond the limit.
    void Keep(std::size_t bytes)
    {
        m_Contents += bytes;
        if (m_Contents > MaxContents) throw std::bad_alloc();
    }

    void Open(const char* name, const char** attributes)
    {
        Keep(sizeof(CElement) + std::strlen(name));
        for (const char** ppText = attributes; ppText && *ppText; ppText++)
            Keep(sizeof(std::string) + std::strlen(*ppText));
        std::deque<CElement>& elements = m_pDocument->Elements;
        m_OpenElements.push_back(elements.size());
        elements.emplace_back();
        CElement& element = elements.back();
        element.pElements = &elements;
        element.Index = elements.size() - 1;
        element.Name = name;
        for (; attributes && attributes[0]; attributes += 2)
            element.Attributes.emplace_back(attributes[0], attributes[1]);
    }

    void Close()
    {
        m_pDocument->Elements[m_OpenElements.back()].End = m_pDocument->Elements.size();
        m_OpenElements.pop_back();
    }

    void Stop(ULONG error)
    {
        m_Error = error;
        XML_StopParser(m_pParser.get(), XML_FALSE);
    }

    // No exception may cross Expat, which is C.
    template <typename Action>
    void Guard(Action action)
    {
        try {
            action();
        } catch (const std::exception&) {
            Stop(XMLErrAlloc);
        }
    }

    static void XMLCALL OnStart(void* user, const char* name, const char** attributes)
    {
        CBuilder* pThis = static_cast<CBuilder*>(user);
        if (pThis->m_OpenElements.size() > MaxDepth) return pThis->Stop(XMLErrUnknown);
        pThis->Guard([=] { pThis->Open(name, attributes); });
    }

    // Comes once more after a stop inside an empty element.
    static void XMLCALL OnEnd(void* user, const char*)
    {
        CBuilder* pThis = static_cast<CBuilder*>(user);
        if (pThis->m_Error == XMLNoError) pThis->Close();
    }

    static void XMLCALL OnText(void* user, const char* text, int length)
    {
        CBuilder* pThis = static_cast<CBuilder*>(user);
        pThis->Guard([=] {
            pThis->Keep(static_cast<std::size_t>(length));
            pThis->m_pDocument->Elements[pThis->m_OpenElements.back()].Text.append(text,
                                                                                   static_cast<std::size_t>(length));
        });
    }

    std::unique_ptr<std::remove_pointer_t<XML_Parser>, FreeParser> m_pParser;
    std::unique_ptr<CDocument> m_pDocument;
    std::vector<std::size_t> m_OpenElements;
    std::size_t m_Contents = 0;
    ULONG m_Error;
};

// Reads a file in pieces into the builder.
ULONG ReadFile(FILE* pFile, CBuilder& builder)
{
    std::vector<char> chunk(ChunkSize);
    bool empty = true;
    for (;;) {
        const std::size_t length = std::fread(chunk.data(), 1, chunk.size(), pFile);
        if (std::ferror(pFile)) return XMLErrFileRead;
        const bool last = length < chunk.size();
        if (last && length == 0 && empty) return XMLErrUnknown;
        if (!builder.Feed(chunk.data(), length, last)) return builder.GetError();
        if (last) return XMLNoError;
        empty = false;
    }
}

}  // namespace

CZalXMLNode* CZalXMLNode::GetFirstChild(LPCTSTR element)
{
    const CElement& self = *AsElement(this);
    std::deque<CElement>& elements = *self.pElements;
    for (std::size_t i = self.Index + 1; element && i < self.End; i = elements[i].End)
        if (elements[i].Name == element) return &elements[i];
    return nullptr;
}

LPCTSTR CZalXMLNode::GetAttribute(LPCTSTR name)
{
    const std::string* pValue = name ? FindAttribute(*AsElement(this), name) : nullptr;
    return pValue ? pValue->c_str() : nullptr;
}

const TCHAR* CZalXMLNode::GetValue()
{
    return AsElement(this)->Text.c_str();
}

CZalXMLReader::CZalXMLReader() : m_pDocument(nullptr) {}

CZalXMLReader::~CZalXMLReader()
{
    delete m_pDocument;
}

ULONG CZalXMLReader::ParseFile(LPCTSTR path)
{
    delete m_pDocument;
    m_pDocument = nullptr;
    if (!path) return XMLErrExisting;

    std::unique_ptr<FILE, int (*)(FILE*)> pFile(std::fopen(path, "rb"), std::fclose);
    if (!pFile) return errno == ENOENT || errno == ENOTDIR ? XMLErrExisting : XMLErrFileOpen;
    try {
        CBuilder builder;
        const ULONG error = ReadFile(pFile.get(), builder);
        if (error == XMLNoError) m_pDocument = builder.Finish();
        return error;
    } catch (const std::exception&) {
        return XMLErrAlloc;
    }
}

bool CZalXMLReader::IsValid()
{
    return m_pDocument != nullptr;
}

CZalXMLNode* CZalXMLReader::GetRootNode()
{
    return m_pDocument ? &m_pDocument->Elements.front() : nullptr;
}

CZalXMLNode* CZalXMLReader::FindFirstChildOf(CZalXMLNode* parent, LPCTSTR element, LPCTSTR attribute, LPCTSTR value)
{
    if (!m_pDocument || !element) return nullptr;
    const CElement& top = parent ? *AsElement(parent) : m_pDocument->Elements.front();
    std::deque<CElement>& elements = *top.pElements;
    for (std::size_t i = top.Index + 1; i < top.End; i++) {
        if (elements[i].Name != element) continue;
        if (!attribute || !value) return &elements[i];
        const std::string* pValue = FindAttribute(elements[i], attribute);
        if (pValue && *pValue == value) return &elements[i];
    }
    return nullptr;
}
