// Custom operators: plug-in code that the host runs, in dependency order, whenever what it
// writes is read at some time.
#pragma once

#include <vector>

#include "krx/property.h"

namespace KRX {

class CustomOperator : public SIObject {
 public:
  using SIObject::SIObject;
  // Ports connect to kinematic states, parameters, user-data blobs and curve geometry
  // (an X3DObject curve as a geometry target). Returns the port index within its kind.
  int AddOutputPort(const CRef& target, const CString& name = L"");
  int AddInputPort(const CRef& target, const CString& name = L"");
  // Starts a port group; ports added afterwards belong to it.
  CStatus AddPortGroup(const CString& name);
  CStatus PutAlwaysEvaluate(bool on);
  bool GetAlwaysEvaluate() const;
  // Wires the operator into the scene. `construction_mode` is recorded as given. The
  // operator's _Init runs here (and again when a scene holding it is reopened).
  CStatus Connect(int construction_mode = 0);
  bool IsConnected() const;
  std::vector<CRef> GetInputTargets() const;
  std::vector<CRef> GetOutputTargets() const;
  // Marks the operator's outputs out of date so that it runs at the next read.
  void Dirty();

 protected:
  ClassID HandleClass() const override { return ClassID::CustomOperator; }
};

// What an operator callback receives. Context(ref) on the ref a callback got.
class Context : public CBase {
 public:
  using CBase::CBase;
  // The command, menu, property or operator the callback belongs to.
  CRef GetSource() const;
  CValue GetAttribute(const CString& name) const;
  CStatus PutAttribute(const CString& name, const CValue& value);
  // Per-instance data (operators: lives from _Init to _Term; owned by the plug-in).
  void* GetUserData() const;
  CStatus PutUserData(void* data);

 protected:
  ClassID HandleClass() const override { return ClassID::Context; }
};

class OperatorContext : public Context {
 public:
  using Context::Context;
  // Evaluation time in frames.
  double GetTime() const;
  // Input port values, by index in the order the ports were added: a parameter port gives
  // the parameter's value at the evaluation time; other ports give a reference to their
  // target (read a kinematic state with GetTransform(GetTime())).
  CValue GetInputValue(int index) const;
  CRef GetInputTarget(int index) const;
  int GetInputCount() const;
  // The output port being written (operators here have their outputs written one at a time).
  CRef GetOutputTarget() const;
  // The output's current value, before this operator's write.
  MATH::CTransformation GetOutputTransform() const;
  CStatus PutOutputTransform(const MATH::CTransformation& t);
  CStatus PutOutputValue(const CValue& v);
  CStatus PutOutputCurvePoints(const std::vector<MATH::CVector3>& points);
};

}  // namespace KRX
