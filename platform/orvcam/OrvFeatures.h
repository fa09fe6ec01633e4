#pragma once

#include "orvcam/OrvStatus.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// The camera's (or a transport module's) GenICam features by name.
///
/// Nodes belong to their array and live as long as it does. Every call may go to the camera and back, so it blocks for
/// a register round trip, or for all retries when the camera is gone: keep it off the GUI thread where that matters.
/// Threads: any; calls on one array are serialised inside.
namespace OrvCam {

/// What may be done with a feature now.
enum class Access { NotImplemented, NotAvailable, ReadOnly, WriteOnly, ReadWrite };
enum class Visibility { Beginner = 0, Expert = 1, Guru = 2, Invisible = 3 };
/// How an integer is shown best.
enum class Representation { Plain, Hexadecimal, IpAddress, MacAddress };
enum class FeatureKind { Category, Integer, Float, Boolean, Enumeration, String, Command, Register };

/// What the description says of a feature, apart from its value and limits. Does not change.
struct FeatureInfo {
    std::string name;
    FeatureKind kind = FeatureKind::Register;
    int level = 0; ///< in the tree; 0: listed by the root
    std::string unit;
    std::string toolTip;
    Visibility visibility = Visibility::Beginner;
    Representation representation = Representation::Plain;
};

class Node {
public:
    virtual const std::string &Name() const = 0;
    virtual Access GetAccess() = 0;

protected:
    ~Node() = default;
};

/// Getters store a status in `*err` when `err` is not null, and return 0, "" or false on failure.
class IntegerNode : public Node {
public:
    virtual std::int64_t GetValue(int *err = nullptr) = 0;
    virtual int SetValue(std::int64_t value) = 0;
    virtual std::int64_t GetMin(int *err = nullptr) = 0;
    virtual std::int64_t GetMax(int *err = nullptr) = 0;
    virtual std::int64_t GetIncrement(int *err = nullptr) = 0;

protected:
    ~IntegerNode() = default;
};

class FloatNode : public Node {
public:
    virtual double GetValue(int *err = nullptr) = 0;
    virtual int SetValue(double value) = 0;
    virtual double GetMin(int *err = nullptr) = 0;
    virtual double GetMax(int *err = nullptr) = 0;

protected:
    ~FloatNode() = default;
};

class BooleanNode : public Node {
public:
    virtual bool GetValue(int *err = nullptr) = 0;
    virtual int SetValue(bool value) = 0;

protected:
    ~BooleanNode() = default;
};

class StringNode : public Node {
public:
    virtual std::string GetValue(int *err = nullptr) = 0; ///< UTF-8
    virtual int SetValue(const std::string &value) = 0;

protected:
    ~StringNode() = default;
};

class EnumerationNode : public Node {
public:
    /// The entry's name; "" without an error when the register holds a value that no entry has.
    virtual std::string GetValue(int *err = nullptr) = 0;
    virtual std::int64_t GetIntValue(int *err = nullptr) = 0;
    virtual int SetValue(const std::string &entry) = 0;
    /// Names of the entries that can be set now, in the description's order.
    virtual std::vector<std::string> GetEntries(int *err = nullptr) = 0;

protected:
    ~EnumerationNode() = default;
};

class FeatureArray {
public:
    // The node of that name and kind; null with ORV_CAM_ERR_FEATURE_NOT_PRESENT when the camera has no such feature (or
    // its description refers to something that does not exist), with ORV_CAM_ERR_WRONG_TYPE when it is of another kind.
    virtual IntegerNode *GetInt(const char *name, int *err = nullptr) = 0;
    virtual FloatNode *GetFloat(const char *name, int *err = nullptr) = 0;
    virtual BooleanNode *GetBool(const char *name, int *err = nullptr) = 0;
    virtual StringNode *GetString(const char *name, int *err = nullptr) = 0;
    virtual EnumerationNode *GetEnum(const char *name, int *err = nullptr) = 0;

    /// Executes a command and waits until the camera reports it done, at most 5 s.
    virtual int ExecuteCommand(const char *name) = 0;
    /// Writes an integer, boolean (0 or 1) or enumeration (by entry value) feature.
    virtual int SetIntegerValue(const char *name, std::int64_t value) = 0;
    /// Names of all features that the description's categories list, in tree order.
    virtual std::vector<std::string> FeatureNames() = 0;
    /// The categories and their features, each once and a category before what it lists. No register round trips.
    virtual std::vector<FeatureInfo> FeatureTree() { return {}; }
    /// Of a feature of any kind, commands included; NotImplemented where there is none.
    virtual Access GetAccess(const char * /*name*/) { return Access::NotImplemented; }
    /// Runs `act` and keeps the calls of other threads waiting meanwhile, on the nodes, too: for settings that belong
    /// together, as a selector that is moved for a moment, and what it selects. `act` makes its calls here as ever, and
    /// must not wait for a thread that does; a command in it keeps the others away until it is done.
    /// \return what `act` returned.
    virtual int RunAlone(const std::function<int()> &act) { return act(); }

protected:
    ~FeatureArray() = default;
};

} // namespace OrvCam
