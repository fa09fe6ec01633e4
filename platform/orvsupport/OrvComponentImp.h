#pragma once

#include "orvsupport/OrvComponent.h"
#include "orvsupport/OrvParamStorage.h"

/// The component that forwards everything to a parameter store.
///
/// Concrete components derive from it and declare their parameters in their constructor; the table never changes after
/// that. A component that updates its own figures calls m_params directly, always with notification, so that every
/// change reaches the change callback and the listeners. Takes no lock of its own: the store does.
class OrvComponentImp : public OrvComponent {
public:
    explicit OrvComponentImp(std::uint8_t componentTypeId);
    ~OrvComponentImp() override;

    std::uint8_t GetComponentTypeID() override;
    std::uint32_t GetParamCount() override;
    std::uint32_t GetParamName(unsigned int index, char *buffer, unsigned int *length) override;
    std::uint32_t GetParamAsString(char *name, char *buffer, unsigned int *length, const char *format) override;
    std::uint32_t SetParamAsString(char *name, char *text) override;
    std::uint32_t SetParamBool(char *name, bool value) override;
    std::uint32_t SetParamInt(char *name, long value) override;
    std::uint32_t SetParamFloat(char *name, double value) override;
    std::uint32_t SetParamString(char *name, char *text) override;
    std::uint32_t SetParamArray(char *name, void *data, unsigned int sizeBytes) override;
    std::uint32_t GetParamBool(char *name, bool *value) override;
    std::uint32_t GetParamInt(char *name, long *value) override;
    std::uint32_t GetParamFloat(char *name, double *value) override;
    std::uint32_t GetParamString(char *name, char *buffer, unsigned int *length) override;
    std::uint32_t GetParamArray(char *name, void *buffer, unsigned int *sizeBytes) override;
    std::uint32_t RunCommand(char *name) override;

protected:
    OrvParamStorage m_params;

private:
    std::uint8_t m_componentTypeId;
};
