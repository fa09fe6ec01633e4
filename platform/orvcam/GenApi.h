#pragma once

#include "orvcam/PortIo.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace orv::cam {

/// One node of a GenApi; only its owner knows what it is.
struct GenApiNode;

enum class GenApiAccess { Undefined, ReadOnly, WriteOnly, ReadWrite };

struct IntegerRange {
    std::int64_t minimum = 0;
    std::int64_t maximum = 0;
    std::int64_t increment = 1;
};

struct FloatRange {
    double minimum = 0;
    double maximum = 0;
    double increment = 0; ///< 0: none
};

/// The GenApi library (Aravis's, without its transport layers) over one port.
///
/// A thin layer: one function per call, errors as OrvCamStatus, values copied out. It checks what the library checks:
/// limits and the registers' access modes; FeatureArrayImp adds the rest.
/// Threads: one at a time for one object, the reading calls included, since reading a value changes the tree. Different
/// objects are independent. Port accesses happen in the calling thread.
class GenApi {
public:
    /// \param xml   passed by ReadDescription; the library trusts it.
    /// \param port  borrowed, must outlive the object.
    /// \return null with a sentence in `*error`.
    static std::unique_ptr<GenApi> Create(const std::string &xml, PortIo &port, std::string *error);
    ~GenApi();

    GenApiNode *Find(const std::string &name) const;

    int IsImplemented(GenApiNode *node, bool *yes);
    int IsAvailable(GenApiNode *node, bool *yes);
    int IsLocked(GenApiNode *node, bool *yes);
    GenApiAccess AccessMode(GenApiNode *node);

    // The node must be of the kind: anything else is ORV_CAM_ERR_WRONG_TYPE.
    int GetInteger(GenApiNode *node, std::int64_t *value);
    int SetInteger(GenApiNode *node, std::int64_t value);
    /// Without an increment of its own: 1. Addresses (IPv4, MAC) are held within their 32 and 48 bits.
    int GetIntegerRange(GenApiNode *node, IntegerRange *range);
    int GetFloat(GenApiNode *node, double *value);
    int SetFloat(GenApiNode *node, double value);
    int GetFloatRange(GenApiNode *node, FloatRange *range);
    int GetBoolean(GenApiNode *node, bool *value);
    int SetBoolean(GenApiNode *node, bool value);
    int GetString(GenApiNode *node, std::string *value); ///< UTF-8
    int SetString(GenApiNode *node, const std::string &value);
    int GetStringMaximum(GenApiNode *node, std::int64_t *bytes);
    int GetEntry(GenApiNode *node, std::string *name); ///< "" for a value that no entry has
    int GetEntryValue(GenApiNode *node, std::int64_t *value);
    int SetEntry(GenApiNode *node, const std::string &name);
    int SetEntryValue(GenApiNode *node, std::int64_t value);
    /// Entries that are implemented and available now, in document order.
    int GetEntries(GenApiNode *node, std::vector<std::string> *names);
    int Execute(GenApiNode *node);

private:
    struct Impl;
    explicit GenApi(std::unique_ptr<Impl> impl);

    std::unique_ptr<Impl> m_impl;
};

} // namespace orv::cam
