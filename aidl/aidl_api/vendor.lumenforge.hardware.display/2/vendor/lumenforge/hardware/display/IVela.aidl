///////////////////////////////////////////////////////////////////////////////
// THIS FILE IS IMMUTABLE. DO NOT EDIT IN ANY CASE.                          //
///////////////////////////////////////////////////////////////////////////////

// This file is a snapshot of an AIDL file. Do not edit it manually. There are
// two cases:
// 1). this is a frozen version file - do not edit this in any case.
// 2). this is a 'current' file. If you make a backwards compatible change to
//     the interface (from the latest frozen version), the build system will
//     prompt you to update this file with `m <name>-update-api`.
//
// You must not make a backward incompatible change to any AIDL file built
// with the aidl_interface module type with versions property set. The module
// type is used to build AIDL files in a way that they can be used across
// independently updatable components of the system. If a device is shipped
// with such a backward incompatible change, it has a high risk of breaking
// later when a module using the interface is updated, e.g., Mainline modules.

package vendor.lumenforge.hardware.display;
@VintfStability
interface IVela {
  int velaConfigureSet(in int type, in int[] values);
  int[] velaConfigureGet(in int type, in int[] params);
  String velaConfigureBatch(in int type, in String request);
  int velaConfigureBuffer(in int type, in long param, in ParcelFileDescriptor fd, in int size);
  void registerCallback(in long id, in @nullable vendor.lumenforge.hardware.display.IVelaCallback callback);
  void registerSoftVelaClient(in long id, in @nullable vendor.lumenforge.hardware.display.ISoftVelaClient client);
  void initialize(in vendor.lumenforge.hardware.display.DisplayConfigVariableInfo info);
  byte[] panelReadWrite(in boolean first, in int second, in int third, in boolean fourth, in byte[] data, in int sixth);
  vendor.lumenforge.hardware.display.IVelaComposerClient createComposerClient();
  void buildLayerStack(in long display, in vendor.lumenforge.hardware.display.LayerStack stack);
  void changeLayerType(in long layer, in long type);
  int commitLayerStack(in long display, in int flags);
  int configureVelaMaxcll(in int value);
  void createLayer(in long display, in long layer);
  void destroyLayer(in long display, in long layer);
  void enableSecondaryDisplay(in boolean enable);
  vendor.lumenforge.hardware.display.VelaFixedConfig getCurrentConfig(in long display);
  String getDumpString(in long display);
  vendor.lumenforge.hardware.display.LutData getLayerToneMappingLut(in long layer, in int table);
  int getOsdStatus(in int which);
  int handleDisplayEvent(in long display, in int event, in int value);
  int present(in long display);
  int presentDisplay(in long display);
  void reportDualChannelStatus(in int status);
  void setActiveConfig(in long display, in vendor.lumenforge.hardware.display.DisplayConfigVariableInfo config);
  void setClientTarget(in long display, in int target);
  int setColorModeWithRenderIntent(in long display, in int mode, in int intent);
  void setDisplayConnected(in long display, in boolean connected);
  void setLayerBuffer(in long display, in long layer, in vendor.lumenforge.hardware.display.BufferInfo buffer);
  void setLayerCompositionType(in long display, in long layer, in int type);
  void setLayerDisplayFrame(in long display, in long layer, in vendor.lumenforge.hardware.display.HwcRect frame);
  void setLayerProperty(in long display, in int property, in long value);
  void setLayerSetEmpty(in long display, in boolean empty);
  void setLayerSourceCrop(in long display, in long layer, in vendor.lumenforge.hardware.display.HwcRect crop);
  void setLayerTransform(in long display, in long layer, in int transform);
  void setLayerZOrder(in long display, in long layer, in int z);
  int setOsdAutoRefresh(in int enable);
  int setPowerMode(in long display, in int mode, in boolean first, in boolean second);
  int[] updateDisplayBrightness(in long display, in int brightness, in int[] values);
  int setColorTransform(in float[] matrix);
  void configureVelaHdrMode(in int mode);
}
