#pragma once

#include "catalogue/parameters.h"
#include "libconfig/paramvalue.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>

/// What kind of value a parameter holds; the numbers are the descriptor's type codes.
enum class ParamKind : int {
    Unsigned = 1,
    Enumerated = 3,
    String = 12,
    Data = 13,
    Alarm = 14,
};

/// Who is meant to set a parameter. The store does not enforce it.
enum class ParamWriter : int {
    Clients,
    Daemon,
    MediaService,
};

/// One named value of an enumerated parameter.
struct ParamValueName {
    std::uint32_t value;
    const char *name;
};

/// One parameter of the catalogue, as the generator writes it.
struct ParamRow {
    eParam_t id;
    const char *name;
    const char *description;
    ParamKind kind;
    std::span<const ParamValueName> values;
    std::uint32_t defaultNumber;
    const char *defaultText;
    std::uint32_t minimum;
    std::uint32_t maximum;
    ParamWriter writer;
    bool persistent;
    bool momentary;
    bool resetsWithWriter;
    std::span<const char *const> attributes;
    const char *unit;
};

/// The attributes that the catalogue attaches to a parameter: names without a value.
class AttributeSet
{
public:
    explicit AttributeSet(std::span<const char *const> names) : _names(names) {}

    /// Whether the parameter carries the attribute of this name.
    bool has(const std::string &name) const;
    std::span<const char *const> names() const { return _names; }

private:
    std::span<const char *const> _names;
};

/// Why a value does not fit a parameter.
enum class ValueError {
    None,
    UnknownParameter,
    WrongKind,
    OutOfRange,
    TooLong,
};

/// Describes one parameter: name, kind, range, value names, attributes. Lives for the process's
/// life. Immutable, so any thread may use it.
class ParamDescriptor
{
public:
    explicit ParamDescriptor(const ParamRow &row) : _row(row), _attributes(row.attributes) {}
    virtual ~ParamDescriptor() = default;
    ParamDescriptor(const ParamDescriptor &) = delete;
    ParamDescriptor &operator=(const ParamDescriptor &) = delete;

    eParam_t id() const { return _row.id; }
    /// The name with its prefix, "eParamTransportState".
    std::string name() const { return _row.name; }
    std::string description() const { return _row.description; }
    ParamKind kind() const { return _row.kind; }
    /// The kind as a number: 3 enumerated, 12 string, 1 unsigned, 13 data, 14 alarm.
    int typeCode() const { return static_cast<int>(_row.kind); }
    /// Whether values are numbers (unsigned or enumerated) and not bytes.
    bool isNumber() const;
    /// Whether values are bytes that are not text (data or alarm).
    bool isData() const;
    ParamWriter writer() const { return _row.writer; }
    /// The store keeps the value over a restart.
    bool isPersistent() const { return _row.persistent; }
    /// A command or notice: each set is an event of its own, and none is remembered.
    bool isMomentary() const { return _row.momentary; }
    /// Goes back to its default when the client that wrote it is lost.
    bool resetsWithWriter() const { return _row.resetsWithWriter; }
    /// What the number of an unsigned parameter counts; empty when nothing is to be said.
    std::string unit() const { return _row.unit; }
    std::uint32_t minimum() const { return _row.minimum; }
    std::uint32_t maximum() const { return _row.maximum; }
    ParamValue defaultValue() const;
    const AttributeSet &attributes() const { return _attributes; }

    /// The values of an enumerated parameter in ascending order; empty for other kinds.
    std::span<const ParamValueName> values() const { return _row.values; }
    /// The name of an enumerated value; empty when the value has none.
    std::string valueName(int value) const;

    /// Whether the parameter takes the value, and if not, why.
    ValueError check(const ParamValue &value) const;

private:
    const ParamRow &_row;
    AttributeSet _attributes;
};

/// Describes a parameter of bytes: plain data or an alarm.
class DataDescriptor : public ParamDescriptor
{
public:
    using ParamDescriptor::ParamDescriptor;
};

/// Builds the table of descriptors. Once in a process, before anything else here; further calls do
/// nothing. Any thread.
void CreateDescriptors();

/// The descriptor of a parameter; null when the number is unknown or the table is not built.
const ParamDescriptor *GetDescriptor(eParam_t id);

/// All descriptors in ascending order of their numbers; empty when the table is not built.
std::span<const ParamDescriptor *const> allDescriptors();
