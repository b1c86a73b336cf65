#include "kodd/schemadeclaration.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <system_error>
#include <utility>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/TransService.hpp>

#include "host/names.h"
#include "host/xmllibrary.h"
#include "kodiag/message.h"

namespace kodd {
namespace {

constexpr std::size_t kMaximumBytes = std::size_t{4} << 20;
constexpr std::size_t kMaximumFiles = 256;
constexpr std::size_t kMaximumPackages = 256;

std::string utf8(const XMLCh* text) {
  const xercesc::TranscodeToStr transcoded(text, "UTF-8");
  return {reinterpret_cast<const char*>(transcoded.str()), transcoded.length()};
}

/// The attributes of one element, each of which must be asked for.
class ElementAttributes {
 public:
  ElementAttributes(const std::string& file, std::string element,
                    const xercesc::Attributes& attributes)
      : file_(file), element_(std::move(element)) {
    for (XMLSize_t i = 0; i < attributes.getLength(); ++i) {
      values_.emplace_back(utf8(attributes.getLocalName(i)), utf8(attributes.getValue(i)));
    }
  }

  std::string take(const std::string& name) {
    const auto found =
        std::find_if(values_.begin(), values_.end(),
                     [&name](const auto& attribute) { return attribute.first == name; });
    if (found == values_.end()) return {};
    std::string value = std::move(found->second);
    values_.erase(found);
    return value;
  }

  std::string takeRequired(const std::string& name) {
    std::string value = take(name);
    if (value.empty()) {
      raiseSchemaError(file_, "<" + element_ + "> lacks the attribute \"" + name + "\"");
    }
    return value;
  }

  void refuseOthers() const {
    if (values_.empty()) return;
    raiseSchemaError(
        file_, "<" + element_ + "> has an unknown attribute \"" + values_[0].first + "\"");
  }

 private:
  const std::string& file_;
  std::string element_;
  std::vector<std::pair<std::string, std::string>> values_;
};

/// Collects the declarations of one file. Throws through the parser, which allows it.
class SchemaHandler : public xercesc::DefaultHandler {
 public:
  SchemaHandler(const std::string& file, SchemaDeclaration& into) : file_(file), into_(into) {}

  const std::vector<std::string>& includes() const { return includes_; }

  void startElement(const XMLCh*, const XMLCh* localName, const XMLCh*,
                    const xercesc::Attributes& attributes) override {
    const std::string element = utf8(localName);
    ElementAttributes values(file_, element, attributes);
    const std::string parent = open_.empty() ? "" : open_.back();
    if (element == "Metamodel" && parent.empty()) {
      values.take("metamodelVersion");
    } else if (element == "file" && parent == "Metamodel") {
      includes_.push_back(values.take("path"));
    } else if (element == "Package" && parent == "Metamodel") {
      openPackage(values.takeRequired("name"));
    } else if (element == "Class" && parent == "Package") {
      package_->classes.push_back({values.takeRequired("name"), {}, {}});
    } else if (parent == "Class") {
      addMember(element, values);
    } else {
      raiseSchemaError(file_, "<" + element + "> is out of place");
    }
    values.refuseOthers();
    open_.push_back(element);
  }

  void endElement(const XMLCh*, const XMLCh*, const XMLCh*) override { open_.pop_back(); }

  void startDTD(const XMLCh*, const XMLCh*, const XMLCh*) override {
    raiseSchemaError(file_, "a DOCTYPE is not allowed");
  }

  void error(const xercesc::SAXParseException& problem) override { fatalError(problem); }
  void fatalError(const xercesc::SAXParseException& problem) override {
    raiseSchemaError(file_, "line " + std::to_string(problem.getLineNumber()) + ": " +
                                utf8(problem.getMessage()));
  }

 private:
  void openPackage(const std::string& name) {
    const auto known = std::find_if(
        into_.packages.begin(), into_.packages.end(),
        [&name](const PackageDeclaration& package) { return package.name == name; });
    if (known != into_.packages.end()) {
      package_ = &*known;
    } else {
      if (into_.packages.size() == kMaximumPackages) {
        raiseSchemaError(
            file_, "it declares more than " + std::to_string(kMaximumPackages) + " packages");
      }
      into_.packages.push_back({name, {}});
      package_ = &into_.packages.back();
    }
  }

  void addMember(const std::string& element, ElementAttributes& values) {
    ClassDeclaration& cls = package_->classes.back();
    if (element == "Property") {
      PropertyDeclaration property;
      property.name = values.takeRequired("name");
      property.kind = values.takeRequired("kind");
      property.defaultText = values.take("default");
      property.target = values.take("target");
      property.index = values.take("index");
      cls.properties.push_back(std::move(property));
    } else if (element == "Collection") {
      PropertyDeclaration property;
      property.name = values.takeRequired("name");
      property.kind = "collection";
      property.target = property.name;
      property.via = values.take("via");
      cls.properties.push_back(std::move(property));
    } else if (element == "Index") {
      cls.indexes.push_back({values.takeRequired("properties"), values.take("partial")});
    } else {
      raiseSchemaError(file_, "<" + element + "> is no part of a class");
    }
  }

  const std::string& file_;
  SchemaDeclaration& into_;
  std::vector<std::string> open_;
  std::vector<std::string> includes_;
  PackageDeclaration* package_ = nullptr;
};

std::vector<std::string> parseInto(SchemaDeclaration& into, const SchemaSource& source) {
  host::startXmlLibrary();
  const std::unique_ptr<xercesc::SAX2XMLReader> reader(
      xercesc::XMLReaderFactory::createXMLReader());
  reader->setFeature(xercesc::XMLUni::fgSAX2CoreNameSpaces, true);
  reader->setFeature(xercesc::XMLUni::fgSAX2CoreValidation, false);
  reader->setFeature(xercesc::XMLUni::fgXercesLoadExternalDTD, false);
  reader->setFeature(xercesc::XMLUni::fgXercesDisableDefaultEntityResolution, true);
  SchemaHandler handler(source.file, into);
  reader->setContentHandler(&handler);
  reader->setErrorHandler(&handler);
  reader->setLexicalHandler(&handler);
  const xercesc::MemBufInputSource input(reinterpret_cast<const XMLByte*>(source.bytes.data()),
                                         source.bytes.size(), source.file.c_str());
  try {
    reader->parse(input);
  } catch (const xercesc::XMLException& problem) {
    raiseSchemaError(source.file, utf8(problem.getMessage()));
  } catch (const xercesc::OutOfMemoryException&) {
    raiseSchemaError(source.file, "out of memory");
  }
  return handler.includes();
}

std::string includedFile(const std::string& path) {
  return (host::rootDirectory() / std::filesystem::path(path)).lexically_normal().string();
}

}  // namespace

void raiseSchemaError(const std::string& file, const std::string& reason) {
  kodiag::raise({"KODD:kodd", "SchemaError"}, {{"SchemaFile", file}, {"Reason", reason}});
}

std::string readSchemaBytes(const std::string& file) {
  if (file.find('\0') != std::string::npos) {
    raiseSchemaError(file, "the file name holds a character 0");
  }
  std::error_code error;
  // The stream would open a folder as well, and throw when it reads from it.
  if (!std::filesystem::is_regular_file(file, error)) {
    raiseSchemaError(file, error ? error.message() : "it is no regular file");
  }
  if (std::filesystem::file_size(file, error) > kMaximumBytes && !error) {
    raiseSchemaError(file, "it is larger than " + std::to_string(kMaximumBytes) + " bytes");
  }
  errno = 0;
  std::ifstream stream(file, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  if (!stream.is_open() || stream.bad()) {
    raiseSchemaError(file, std::generic_category().message(errno != 0 ? errno : EIO));
  }
  return bytes;
}

SchemaDeclaration readSchemaFiles(const std::string& schemaFile) {
  SchemaDeclaration declaration;
  std::set<std::string> seen;
  std::vector<std::string> waiting{schemaFile};
  while (!waiting.empty()) {
    const std::string file = std::move(waiting.back());
    waiting.pop_back();
    if (!seen.insert(file).second) continue;
    if (seen.size() > kMaximumFiles) {
      raiseSchemaError(file, "more than " + std::to_string(kMaximumFiles) + " files");
    }
    declaration.sources.push_back({file, readSchemaBytes(file)});
    for (const std::string& path : parseInto(declaration, declaration.sources.back())) {
      if (!path.empty()) waiting.push_back(includedFile(path));
    }
  }
  return declaration;
}

}  // namespace kodd
