#include "station/host/station_channel.h"

/// The plain attributes of a channel: kept as they are given.
namespace station {
namespace {

template <typename T, typename Value>
HostResult put(T& field, const Value& value) {
    field = value;
    return HostCode::success;
}

template <typename T, typename Value>
HostResult give(T* result, const Value& value) {
    *result = value;
    return HostCode::success;
}

}  // namespace

HostResult StationChannel::getIndices(std::vector<std::int32_t>* result) {
    return give(result, place);
}

HostResult StationChannel::setIndexFormat(std::int32_t) {
    return HostCode::success;
}

HostResult StationChannel::setIndexCount(std::int32_t) {
    return HostCode::success;
}

HostResult StationChannel::getDataType(std::int32_t* result) {
    return give(result, type);
}

HostResult StationChannel::isAsync(HostBool* result) {
    return give(result, toHostBool(async));
}

HostResult StationChannel::isSingleValue(HostBool* result) {
    return give(result, toHostBool(singleValue));
}

HostResult StationChannel::setSingleValue(HostBool newSingleValue) {
    return put(singleValue, isTrue(newSingleValue));
}

HostResult StationChannel::getName(std::wstring* result) {
    return give(result, channelName);
}

HostResult StationChannel::setName(const wchar_t* newName) {
    return put(channelName, textOf(newName));
}

HostResult StationChannel::getUnit(std::wstring* result) {
    return give(result, unit);
}

HostResult StationChannel::setUnit(const wchar_t* newUnit) {
    return put(unit, textOf(newUnit));
}

HostResult StationChannel::getColor(std::uint32_t* result) {
    return give(result, color);
}

HostResult StationChannel::setColor(std::uint32_t newColor) {
    return put(color, newColor);
}

HostResult StationChannel::isUsed(HostBool* result) {
    return give(result, toHostBool(isUsedNow));
}

HostResult StationChannel::setUsed(HostBool newUsed) {
    return put(isUsedNow, isTrue(newUsed));
}

HostResult StationChannel::getExpectedRate(float* samplesPerSecond) {
    return give(samplesPerSecond, expectedRate);
}

HostResult StationChannel::getValueList(HostValueList** result) {
    return handOver(valueList, result);
}

HostResult StationChannel::getPropertySet(HostPropertySet** result) {
    return handOver(propertySet, result);
}

HostResult StationChannel::isArray(HostBool* result) {
    return give(result, toHostBool(array));
}

HostResult StationChannel::getArrayInfo(HostArrayInfo** info) {
    return handOver(arrayInfo, info);
}

HostResult StationChannel::setWriteOffset(std::int64_t samples) {
    return put(offset, samples);
}

HostResult StationChannel::getTextAttributeB(std::wstring* result) {
    return give(result, std::wstring());
}

HostResult StationChannel::getTextAttributeC(std::wstring* result) {
    return give(result, std::wstring());
}

HostResult StationChannel::getBoolAttributeA(HostBool* flag) {
    return give(flag, toHostBool(flags[0]));
}

HostResult StationChannel::setBoolAttributeA(HostBool flag) {
    return put(flags[0], isTrue(flag));
}

HostResult StationChannel::getBoolAttributeB(HostBool* flag) {
    return give(flag, toHostBool(flags[1]));
}

HostResult StationChannel::setBoolAttributeB(HostBool flag) {
    return put(flags[1], isTrue(flag));
}

HostResult StationChannel::getDoubleAttributeA(double* value) {
    return give(value, doubles[0]);
}

HostResult StationChannel::setDoubleAttributeA(double value) {
    return put(doubles[0], value);
}

HostResult StationChannel::getDoubleAttributeB(double* value) {
    return give(value, doubles[1]);
}

HostResult StationChannel::setDoubleAttributeB(double value) {
    return put(doubles[1], value);
}

HostResult StationChannel::getDoubleAttributeC(double* value) {
    return give(value, doubles[2]);
}

HostResult StationChannel::setDoubleAttributeC(double value) {
    return put(doubles[2], value);
}

HostResult StationChannel::getDoubleAttributeD(double* value) {
    return give(value, doubles[3]);
}

HostResult StationChannel::setDoubleAttributeD(double value) {
    return put(doubles[3], value);
}

HostResult StationChannel::getIntAttributeA(std::int32_t* value) {
    return give(value, ints[0]);
}

HostResult StationChannel::setIntAttributeA(std::int32_t value) {
    return put(ints[0], value);
}

HostResult StationChannel::getIntAttributeB(std::int32_t* value) {
    return give(value, ints[1]);
}

HostResult StationChannel::setIntAttributeB(std::int32_t value) {
    return put(ints[1], value);
}

HostResult StationChannel::getIntAttributeC(std::int32_t* value) {
    return give(value, 0);
}

HostResult StationChannel::setScalarAttribute(double value) {
    return put(scalar, value);
}

HostResult StationChannel::getBufferAttribute(std::uint32_t* value) {
    return give(value, bufferAttribute);
}

HostResult StationChannel::setBufferAttribute(std::uint32_t value) {
    return put(bufferAttribute, value);
}

HostResult StationChannel::claim() {
    return put(isClaimed, true);
}

HostResult StationChannel::getExtIntAttribute(std::int32_t* value) {
    return give(value, ints[2]);
}

HostResult StationChannel::setExtIntAttribute(std::int32_t value) {
    return put(ints[2], value);
}

HostResult StationChannel::getExtDoubleAttributeA(double* value) {
    return give(value, doubles[4]);
}

HostResult StationChannel::setExtDoubleAttributeA(double value) {
    return put(doubles[4], value);
}

HostResult StationChannel::getExtDoubleAttributeB(double* value) {
    return give(value, doubles[5]);
}

HostResult StationChannel::setExtDoubleAttributeB(double value) {
    return put(doubles[5], value);
}

}  // namespace station
