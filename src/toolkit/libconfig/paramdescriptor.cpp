#include "libconfig/paramdescriptor.h"

#include "libconfig/parametertable.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

namespace
{

using Table = std::vector<const ParamDescriptor *>;

std::atomic<const Table *> descriptorTable{nullptr};

const ParamDescriptor *makeDescriptor(const ParamRow &row)
{
    if (row.kind == ParamKind::Data || row.kind == ParamKind::Alarm) {
        return new DataDescriptor(row);
    }
    return new ParamDescriptor(row);
}

} // namespace

bool AttributeSet::has(const std::string &name) const
{
    return std::ranges::find(_names, name) != _names.end();
}

bool ParamDescriptor::isNumber() const
{
    return _row.kind == ParamKind::Unsigned || _row.kind == ParamKind::Enumerated;
}

bool ParamDescriptor::isData() const
{
    return _row.kind == ParamKind::Data || _row.kind == ParamKind::Alarm;
}

ParamValue ParamDescriptor::defaultValue() const
{
    if (isNumber()) {
        return _row.defaultNumber;
    }
    return std::string(_row.defaultText);
}

std::string ParamDescriptor::valueName(int value) const
{
    const auto wanted = static_cast<std::uint32_t>(value);
    const auto found = std::ranges::find(_row.values, wanted, &ParamValueName::value);
    return found == _row.values.end() ? std::string() : std::string(found->name);
}

ValueError ParamDescriptor::check(const ParamValue &value) const
{
    if (std::holds_alternative<std::uint32_t>(value) != isNumber()) {
        return ValueError::WrongKind;
    }
    if (!isNumber()) {
        const auto &bytes = std::get<std::string>(value);
        return bytes.size() > maxValueBytes ? ValueError::TooLong : ValueError::None;
    }
    const auto number = std::get<std::uint32_t>(value);
    if (_row.kind == ParamKind::Enumerated) {
        const auto found = std::ranges::find(_row.values, number, &ParamValueName::value);
        return found == _row.values.end() ? ValueError::OutOfRange : ValueError::None;
    }
    return number < _row.minimum || number > _row.maximum ? ValueError::OutOfRange
                                                          : ValueError::None;
}

void CreateDescriptors()
{
    static std::once_flag once;
    std::call_once(once, [] {
        // Never deleted: descriptors live for the process's life.
        auto *table = new Table;
        for (const ParamRow &row : parameterRows()) {
            table->push_back(makeDescriptor(row));
        }
        descriptorTable.store(table, std::memory_order_release);
    });
}

const ParamDescriptor *GetDescriptor(eParam_t id)
{
    const auto all = allDescriptors();
    const auto found = std::ranges::lower_bound(all, id, {}, &ParamDescriptor::id);
    return found != all.end() && (*found)->id() == id ? *found : nullptr;
}

std::span<const ParamDescriptor *const> allDescriptors()
{
    const Table *table = descriptorTable.load(std::memory_order_acquire);
    return table ? std::span<const ParamDescriptor *const>(*table)
                 : std::span<const ParamDescriptor *const>();
}
