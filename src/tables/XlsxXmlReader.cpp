#include "XlsxXmlReader.h"

#include "VantorLogging.h"
#include "XlsxErrors.h"
#include "XlsxZipArchive.h"

#include <expat.h>

#include <cstring>

namespace {

struct ParseContext {
    XML_Parser parser = nullptr;
    XlsxXmlHandler* handler = nullptr;
    unsigned long long events = 0; // every callback counts: the parser made progress
    bool doctype = false;
};

inline void noteProgress(ParseContext* ctx)
{
    ++ctx->events;
}

// Once the handler has refused the content, the events the parser still reports (such as
// the end of an empty element whose start was refused) go nowhere.
void stop(ParseContext* ctx)
{
    XML_SetElementHandler(ctx->parser, nullptr, nullptr);
    XML_SetCharacterDataHandler(ctx->parser, nullptr);
    XML_StopParser(ctx->parser, XML_FALSE);
}

void XMLCALL onStart(void* data, const XML_Char* name, const XML_Char** atts)
{
    auto* ctx = static_cast<ParseContext*>(data);
    noteProgress(ctx);
    ctx->handler->startElement(XlsxXmlReader::localName(name), atts);
    if (!ctx->handler->error.isEmpty())
        stop(ctx);
}

void XMLCALL onEnd(void* data, const XML_Char* name)
{
    auto* ctx = static_cast<ParseContext*>(data);
    noteProgress(ctx);
    ctx->handler->endElement(XlsxXmlReader::localName(name));
    if (!ctx->handler->error.isEmpty())
        stop(ctx);
}

void XMLCALL onText(void* data, const XML_Char* text, int len)
{
    auto* ctx = static_cast<ParseContext*>(data);
    noteProgress(ctx);
    ctx->handler->characters(text, len);
    if (!ctx->handler->error.isEmpty())
        stop(ctx);
}

void XMLCALL onDefault(void* data, const XML_Char*, int)
{
    noteProgress(static_cast<ParseContext*>(data));
}

void XMLCALL onDoctype(void* data, const XML_Char*, const XML_Char*, const XML_Char*, int)
{
    auto* ctx = static_cast<ParseContext*>(data);
    ctx->doctype = true;
    XML_StopParser(ctx->parser, XML_FALSE);
}

class Parser
{
public:
    explicit Parser(XlsxXmlHandler& handler)
    {
        // The part's own declaration (or byte-order mark) names its encoding; expat reads
        // UTF-8, UTF-16, ISO-8859-1 and US-ASCII and hands every text on as UTF-8.
        m_ctx.parser = XML_ParserCreate(nullptr);
        m_ctx.handler = &handler;
        XML_SetUserData(m_ctx.parser, &m_ctx);
        XML_SetElementHandler(m_ctx.parser, onStart, onEnd);
        XML_SetCharacterDataHandler(m_ctx.parser, onText);
        XML_SetDefaultHandlerExpand(m_ctx.parser, onDefault);
        XML_SetStartDoctypeDeclHandler(m_ctx.parser, onDoctype);
        XML_SetParamEntityParsing(m_ctx.parser, XML_PARAM_ENTITY_PARSING_NEVER);
    }
    ~Parser() { XML_ParserFree(m_ctx.parser); }

    bool feed(const char* data, int len, bool last, QString& err)
    {
        const unsigned long long before = m_ctx.events;
        if (XML_Parse(m_ctx.parser, data, len, last ? XML_TRUE : XML_FALSE) == XML_STATUS_ERROR)
            return fail(err);
        // Bytes fed since the last block in which anything was reported: one token that
        // has not ended yet.
        m_sinceEvent = m_ctx.events != before ? 0 : m_sinceEvent + len;
        if (m_sinceEvent > XlsxXmlReader::kMaxTokenBytes) {
            qCWarning(lcTables).noquote() << "XlsxXmlReader::parsePart" << "a single token exceeds"
                                          << XlsxXmlReader::kMaxTokenBytes << "bytes";
            err = XlsxErrors::tooLarge();
            return false;
        }
        return true;
    }

private:
    bool fail(QString& err)
    {
        if (!m_ctx.handler->error.isEmpty()) {
            err = m_ctx.handler->error;
            return false;
        }
        if (m_ctx.doctype) {
            qCWarning(lcTables).noquote() << "XlsxXmlReader::parsePart" << "document type declaration refused";
        } else {
            qCWarning(lcTables).noquote() << "XlsxXmlReader::parsePart" << XML_ErrorString(XML_GetErrorCode(m_ctx.parser))
                                          << "line" << XML_GetCurrentLineNumber(m_ctx.parser);
        }
        err = XlsxErrors::badXml();
        return false;
    }

    ParseContext m_ctx;
    long long m_sinceEvent = 0;
};

} // namespace

const char* XlsxXmlReader::attribute(const char** attributes, const char* name)
{
    for (const char** a = attributes; *a; a += 2) {
        if (std::strcmp(localName(a[0]), name) == 0)
            return a[1];
    }
    return nullptr;
}

bool XlsxXmlReader::parsePart(const XlsxZipArchive& zip, const QString& partName, XlsxXmlHandler& handler, QString& err)
{
    Parser parser(handler);
    QString feedErr;
    const bool read = zip.readPart(partName, [&](const char* data, int len) {
        return parser.feed(data, len, false, feedErr);
    }, err);
    if (!read) {
        if (!feedErr.isEmpty())
            err = feedErr;
        return false;
    }
    return parser.feed(nullptr, 0, true, err);
}

bool XlsxXmlReader::parseBytes(const char* data, int len, XlsxXmlHandler& handler, QString& err)
{
    Parser parser(handler);
    return parser.feed(data, len, true, err);
}
