#include "kodd/salvagereader.h"

#include <algorithm>
#include <limits>
#include <map>
#include <optional>
#include <string_view>
#include <utility>

#include "kodd/datamodelrepository.h"
#include "kodd/hostarraycodec.h"
#include "kodd/idallocator.h"
#include "kodd/layout.h"
#include "kodd/schemastore.h"
#include "kodd/storedvalue.h"
#include "kodiag/message.h"
#include "sqldb/damagedfile.h"
#include "text/utf8.h"

namespace kodd {
namespace {

using Row = sqldb::DamagedFile::Row;
using Type = sqldb::DamagedFile::Type;

void makeEmptyRepository(const std::string& path, const std::string& schemaFile) {
  kodiag::util::diagnostics diag;
  DataModelRepository repository;
  repository.open(text::toWide(path), text::toWide(schemaFile), {}, diag);
  diag.raiseIfAny();
}

/// The number in names like "t18_vela_Chunk", when the rest is that of `pattern`, a name made
/// with the number 0; else 0.
int numberIn(std::string_view name, std::string_view pattern) {
  int number = 0;
  std::size_t at = 1;
  for (; at < name.size() && at < 9 && name[at] >= '0' && name[at] <= '9'; ++at) {
    number = 10 * number + (name[at] - '0');
  }
  const bool fits =
      !name.empty() && name[0] == pattern[0] && name.substr(at) == pattern.substr(2);
  return fits ? number : 0;
}

std::string quoted(const std::string& name) {
  std::string text = "\"";
  for (const char c : name) text += c == '"' ? std::string("\"\"") : std::string(1, c);
  return text + "\"";
}

StoredValue storedForm(const SalvagedValue& value, const PropertyInfo& property) {
  if (const auto* whole = std::get_if<long long>(&value)) return *whole;
  if (const auto* real = std::get_if<double>(&value)) return *real;
  const auto& text = std::get<std::string>(value);
  if (isText(property.kind)) return std::string_view(text);
  return std::as_bytes(std::span(text.data(), text.size()));
}

bool isHostArray(std::span<const std::byte> bytes) {
  try {
    decodeHostArray(bytes);
    return true;
  } catch (const kodiag::except::ExceptionWithCauses&) {
    return false;
  }
}

/// What the row holds for a property; nothing when no property of that kind can hold it.
std::optional<SalvagedValue> valueIn(const Row& row, int column, const PropertyInfo& property) {
  const Type type = row.type(column);
  if (isReal(property.kind)) {
    if (type != Type::real && type != Type::integer && type != Type::null) return std::nullopt;
    return type == Type::null ? std::numeric_limits<double>::quiet_NaN() : row.real(column);
  }
  if (isWholeNumber(property.kind)) {
    if (type != Type::integer) return std::nullopt;
    const long long number = row.int64(column);
    if (fitsInt(property.kind) && !std::in_range<int>(number)) return std::nullopt;
    return number;
  }
  if (isText(property.kind)) {
    if (type != Type::text) return std::nullopt;
    const std::string_view text = row.text(column);
    if (property.kind == PropertyKind::wstring && !text::isUtf8(text)) return std::nullopt;
    return std::string(text);
  }
  if (type != Type::blob) return std::nullopt;
  const std::span<const std::byte> bytes = row.blob(column);
  if (property.kind == PropertyKind::hostArray && !isHostArray(bytes)) return std::nullopt;
  return std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

}  // namespace

SalvagedObject::SalvagedObject(const ClassRef& cls, int id)
    : cls_(cls), id_(id), values_(cls.info()->properties.size()) {}

const PropertyInfo& SalvagedObject::property(const std::string& name) const {
  const PropertyRef found = cls_.findProperty(name);
  if (!found.isValid()) {
    kodiag::raise({"KODD:kodd", "InvalidProperty"},
                  {{"PropNameString", name}, {"ClassName", cls_.name()}});
  }
  return *found.info();
}

long long SalvagedObject::integer(const std::string& name) const {
  const auto* const number = std::get_if<long long>(&value(property(name)));
  return number ? *number : 0;
}

double SalvagedObject::real(const std::string& name) const {
  const auto* const number = std::get_if<double>(&value(property(name)));
  return number ? *number : 0;
}

const std::string& SalvagedObject::bytes(const std::string& name) const {
  static const std::string none;
  const auto* const text = std::get_if<std::string>(&value(property(name)));
  return text ? *text : none;
}

void SalvagedObject::set(const std::string& name, long long number) {
  const PropertyInfo& changed = property(name);
  if (isDefault(changed, number)) {
    setValue(changed, {});
  } else {
    setValue(changed, number);
  }
}

struct SalvageReader::Impl {
  Impl(const std::string& path, const std::string& schemaFile);

  /// How a class lies in the file.
  struct Source {
    std::string table;  ///< empty when the file has none
    int number = 0;
    std::vector<const PropertyInfo*> properties;
    std::string columns;  ///< of these, as SQL
  };
  Source sourceOf(const ClassRef& cls, Blobs blobs) const;
  bool isOfClass(long long id, const Source& source) const;
  std::optional<SalvagedObject> objectIn(const Row& row, const ClassRef& cls,
                                         const Source& source) const;

  const Metamodel& model;
  sqldb::DamagedFile file;
  std::vector<sqldb::DamagedFile::Table> tables;
  std::map<long long, long long> classOfBlock;
};

SalvageReader::Impl::Impl(const std::string& path, const std::string& schemaFile)
    : model(Metamodel::load(schemaFile)),
      file(path, kApplicationId,
           [&](const std::string& twin) { makeEmptyRepository(twin, schemaFile); }),
      tables(file.tables()) {
  file.forEachRow("kodd_blocks", "class", [this](const Row& row) {
    if (row.type(0) == Type::integer) classOfBlock[row.id()] = row.int64(0);
  });
}

SalvageReader::Impl::Source SalvageReader::Impl::sourceOf(const ClassRef& cls,
                                                          Blobs blobs) const {
  Source source;
  const std::string pattern = tableName(*cls.info(), 0);
  const auto table = std::ranges::find_if(
      tables, [&](const auto& each) { return numberIn(each.name, pattern) > 0; });
  if (table == tables.end()) return source;
  source.table = table->name;
  source.number = numberIn(table->name, pattern);
  for (const auto& property : cls.info()->properties) {
    if (!isStored(property->kind)) continue;
    if (blobs == Blobs::leaveOut && isBytes(property->kind)) continue;
    const std::string column = columnName(*property, 0);
    const auto found = std::ranges::find_if(
        table->columns, [&](const std::string& name) { return numberIn(name, column) > 0; });
    if (found == table->columns.end()) continue;
    source.properties.push_back(property.get());
    source.columns += (source.columns.empty() ? "" : ",") + quoted(*found);
  }
  if (source.columns.empty()) source.table.clear();
  return source;
}

bool SalvageReader::Impl::isOfClass(long long id, const Source& source) const {
  if (id < IdAllocator::kBlockSize || !std::in_range<int>(id)) return false;
  const auto known = classOfBlock.find(id / IdAllocator::kBlockSize);
  return known == classOfBlock.end() || known->second == source.number;
}

std::optional<SalvagedObject> SalvageReader::Impl::objectIn(const Row& row, const ClassRef& cls,
                                                            const Source& source) const {
  if (!isOfClass(row.id(), source)) return std::nullopt;
  SalvagedObject object(cls, static_cast<int>(row.id()));
  int column = 0;
  for (const PropertyInfo* property : source.properties) {
    std::optional<SalvagedValue> value = valueIn(row, column++, *property);
    if (!value) return std::nullopt;
    if (!isDefault(*property, storedForm(*value, *property))) {
      object.setValue(*property, std::move(*value));
    }
  }
  return object;
}

SalvageReader::SalvageReader(const std::string& file, const std::string& schemaFile)
    : impl_(std::make_unique<Impl>(file, schemaFile)) {}

SalvageReader::~SalvageReader() = default;

MetamodelRef SalvageReader::metamodel() const {
  return MetamodelRef(&impl_->model);
}

SalvageReader::Objects SalvageReader::readAll(const ClassRef& cls, Blobs blobs) {
  Objects found;
  const Impl::Source source = impl_->sourceOf(cls, blobs);
  if (source.table.empty()) {
    // A file made by an older program lacks some; one without any has lost them.
    found.complete = !impl_->tables.empty();
    return found;
  }
  const bool undamaged =
      impl_->file.forEachRow(source.table, source.columns, [&](const Row& row) {
        if (std::optional<SalvagedObject> object = impl_->objectIn(row, cls, source)) {
          found.objects.push_back(std::move(*object));
        } else {
          found.complete = false;
        }
      });
  found.complete = found.complete && undamaged;
  std::ranges::sort(found.objects, {}, &SalvagedObject::id);
  return found;
}

std::unique_ptr<SalvagedObject> SalvageReader::readOne(const ClassRef& cls, int id) {
  std::unique_ptr<SalvagedObject> found;
  const Impl::Source source = impl_->sourceOf(cls, Blobs::read);
  if (source.table.empty()) return found;
  impl_->file.readRow(source.table, source.columns, id, [&](const Row& row) {
    if (std::optional<SalvagedObject> object = impl_->objectIn(row, cls, source)) {
      found = std::make_unique<SalvagedObject>(std::move(*object));
    }
  });
  return found;
}

}  // namespace kodd
