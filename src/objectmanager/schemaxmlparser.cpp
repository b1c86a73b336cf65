#include "objectmanager/schemaxmlparser.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <utility>
#include <vector>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/TransService.hpp>
#include <xercesc/util/XMLUni.hpp>

#include "host/names.h"
#include "host/xmllibrary.h"
#include "kodiag/message.h"

namespace vela {
namespace {

namespace fs = std::filesystem;

const std::string kUnreadable = "none";
constexpr std::size_t kMaximumFiles = 256;
constexpr XMLSize_t kMaximumEntityExpansions = 1000;
constexpr std::size_t kMaximumBytes = std::size_t{4} << 20;
constexpr int kMaximumDepth = 256;

std::string utf8(const XMLCh* text) {
  if (!text) return {};
  const xercesc::TranscodeToStr transcoded(text, "UTF-8");
  return {reinterpret_cast<const char*>(transcoded.str()), transcoded.length()};
}

std::string attribute(const xercesc::Attributes& attributes, const char* name) {
  for (XMLSize_t i = 0; i < attributes.getLength(); ++i) {
    if (utf8(attributes.getLocalName(i)) == name) return utf8(attributes.getValue(i));
  }
  return {};
}

fs::path identityOf(const std::string& file) {
  std::error_code error;
  const fs::path canonical = fs::weakly_canonical(file, error);
  return error ? fs::path(file) : canonical;
}

std::string bytesOf(const std::string& file) {
  std::error_code error;
  // Reading a pipe or a device might never end.
  if (!fs::is_regular_file(file, error)) return {};
  if (fs::file_size(file, error) > kMaximumBytes) return {};
  errno = 0;
  std::ifstream stream(file, std::ios::binary);
  // A shortage in this process says nothing about the file.
  if (!stream.is_open() && (errno == EMFILE || errno == ENFILE || errno == ENOMEM)) {
    kodiag::raise({"KODD:kodd", "IOError"}, {{"Operation", "read the schema"},
                                             {"Location", file},
                                             {"Reason", std::strerror(errno)}});
  }
  return {std::istreambuf_iterator<char>(stream), {}};
}

}  // namespace

/// Content handler and error handler in one.
class SchemaXMLParser::Impl : public xercesc::DefaultHandler {
 public:
  explicit Impl(std::string file) : file_(std::move(file)) {}

  /// \param seen  files read so far; each contributes once, so that no set of files that
  /// include
  ///              each other can make this endless
  std::string signature(std::set<fs::path>& seen) {
    seen.insert(identityOf(file_));
    // A file that is missing has no start of document.
    startDocument();
    if (!parse()) metamodelVersion_ = kUnreadable;
    for (const std::string& path : includes_) include(path, seen);
    return packageName_ + "_" + metamodelVersion_ + includedSignatures_;
  }

  void startDocument() override {
    metamodelVersion_.clear();
    packageName_.clear();
    includedSignatures_.clear();
    includes_.clear();
    depth_ = 0;
  }

  void startElement(const XMLCh*, const XMLCh* localName, const XMLCh*,
                    const xercesc::Attributes& attributes) override {
    // The parser's own cost grows with the square of the depth.
    if (++depth_ > kMaximumDepth) throw xercesc::SAXException("too deep");
    const std::string name = utf8(localName);
    if (name == "Metamodel") {
      metamodelVersion_ = attribute(attributes, "metamodelVersion");
    } else if (name == "Package" && packageName_.empty()) {
      packageName_ = attribute(attributes, "name");
    } else if (name == "file") {
      includes_.push_back(attribute(attributes, "path"));
    }
  }

  void endElement(const XMLCh*, const XMLCh*, const XMLCh*) override { --depth_; }

  void warning(const xercesc::SAXParseException&) override {}
  void error(const xercesc::SAXParseException&) override {}
  void fatalError(const xercesc::SAXParseException&) override {
    metamodelVersion_ = kUnreadable;
  }

 private:
  /// Whether the parser came to an end by itself; fatal errors it reports to fatalError().
  bool parse() {
    host::startXmlLibrary();
    const std::string bytes = bytesOf(file_);
    try {
      xercesc::SecurityManager limits;
      limits.setEntityExpansionLimit(kMaximumEntityExpansions);
      const std::unique_ptr<xercesc::SAX2XMLReader> reader(
          xercesc::XMLReaderFactory::createXMLReader());
      reader->setFeature(xercesc::XMLUni::fgSAX2CoreNameSpaces, true);
      reader->setFeature(xercesc::XMLUni::fgSAX2CoreValidation, false);
      reader->setFeature(xercesc::XMLUni::fgXercesLoadExternalDTD, false);
      reader->setFeature(xercesc::XMLUni::fgXercesDisableDefaultEntityResolution, true);
      reader->setProperty(xercesc::XMLUni::fgXercesSecurityManager, &limits);
      reader->setContentHandler(this);
      reader->setErrorHandler(this);
      reader->parse(xercesc::MemBufInputSource(reinterpret_cast<const XMLByte*>(bytes.data()),
                                               bytes.size(), file_.c_str()));
    } catch (const xercesc::XMLException&) {
      return false;
    } catch (const xercesc::SAXException&) {
      return false;
    } catch (const xercesc::OutOfMemoryException&) {
      return false;
    }
    return true;
  }

  void include(const std::string& path, std::set<fs::path>& seen) {
    if (path.empty()) return;
    const std::string file = (host::rootDirectory() / path).string();
    if (seen.size() >= kMaximumFiles || seen.contains(identityOf(file))) return;
    includedSignatures_ += "_" + Impl(file).signature(seen);
  }

  std::string file_;
  std::string metamodelVersion_;
  std::string packageName_;
  std::string includedSignatures_;
  std::vector<std::string> includes_;
  int depth_ = 0;  ///< of open elements
};

SchemaXMLParser::SchemaXMLParser(const std::string& file)
    : impl_(std::make_unique<Impl>(file)) {}

SchemaXMLParser::~SchemaXMLParser() = default;

std::string SchemaXMLParser::signature() {
  std::set<fs::path> seen;
  return impl_->signature(seen);
}

}  // namespace vela
