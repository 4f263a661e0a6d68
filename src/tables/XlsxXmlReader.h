#pragma once

#include <QString>

class XlsxZipArchive;

// Receives the SAX events of one part. Element and attribute names arrive without their
// namespace prefix ("x:c" arrives as "c").
class XlsxXmlHandler
{
public:
    virtual ~XlsxXmlHandler() = default;
    virtual void startElement(const char* name, const char** attributes) = 0;
    virtual void endElement(const char* name) = 0;
    virtual void characters(const char* text, int len) = 0;
    // A handler that finds the content unacceptable sets an error text; parsing stops.
    QString error;
};

// Streams a part out of the package into expat. Document type declarations are refused
// outright (no workbook part has one), which also rules out entity expansion; a single
// token larger than a sane bound is refused so that memory stays bounded.
class XlsxXmlReader
{
public:
    static bool parsePart(const XlsxZipArchive& zip, const QString& partName, XlsxXmlHandler& handler, QString& err);
    // Parses bytes already in memory (small parts and tests).
    static bool parseBytes(const char* data, int len, XlsxXmlHandler& handler, QString& err);

    static constexpr long long kMaxTokenBytes = 32LL << 20;

    // The local part of a possibly prefixed name.
    static inline const char* localName(const char* name)
    {
        for (const char* p = name; *p; ++p) {
            if (*p == ':')
                return p + 1;
        }
        return name;
    }
    // Value of a (local) attribute name, or null.
    static const char* attribute(const char** attributes, const char* name);
};
