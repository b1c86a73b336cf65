#include "yarrow/yarrowapi.h"

#include "objects/datatypes.h"
#include "velainstance.h"
#include "yarrow/streamstore.h"

namespace yarrow {
namespace {

vela::ObjectManager& sharedRepository() {
  return vela::VelaInstance::getInstance().getObjectManager({}, {});
}

StreamStore streams() {
  return StreamStore(sharedRepository());
}

}  // namespace

std::string YarrowAPI::createStream(StreamDataType, unsigned channels) {
  std::string stream;
  vela::ObjectManager& manager = sharedRepository();
  manager.inTransaction([&] {
    long long type = 0;
    vela::DataTypeUtil::getBuiltInDataTypeHandle(vela::dtypeDouble, manager, type);
    stream = StreamStore(manager).create(type, channels);
  });
  return stream;
}

std::string YarrowAPI::createEnumStream(long long enumClassID, unsigned channels) {
  return streams().createOfEnumeration(enumClassID, channels);
}

void YarrowAPI::addDataToStream(const std::string& stream, const Rows& rows) {
  streams().add(stream, rows);
}

void YarrowAPI::getDataFromStream(const std::string& stream, double startTime, double endTime,
                                  int maxFromStart, int maxFromEnd, Rows& rows) {
  rows = streams().rows(stream, startTime, endTime, {maxFromStart, maxFromEnd});
}

std::size_t YarrowAPI::getNumberOfChannels(const std::string& stream) {
  return streams().countChannels(stream);
}

void YarrowAPI::deleteDataInStream(const std::string& stream,
                                   const std::vector<double>& times) {
  streams().remove(stream, times);
}

void YarrowAPI::updateDataInStream(const std::string& stream, const Rows& rows) {
  streams().update(stream, rows);
}

void YarrowAPI::getMetaDataForStream(const std::string& stream, StringMetaData& texts,
                                     DoubleMetaData& numbers) {
  vela::ObjectManager& manager = sharedRepository();
  manager.inReadUnit([&] {
    texts = StreamStore(manager).texts(stream);
    numbers = StreamStore(manager).numbers(stream);
  });
}

void YarrowAPI::setStringMetaDataForStream(const std::string& stream, const std::string& key,
                                           const std::string& value) {
  streams().setText(stream, key, value);
}

void YarrowAPI::setDoubleMetaDataForStream(const std::string& stream, const std::string& key,
                                           double value) {
  streams().setNumber(stream, key, value);
}

}  // namespace yarrow
