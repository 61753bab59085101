// Anchors the DeviceCatalog library; the module's sources sit beside this file.
namespace DeviceCatalog {
int moduleAnchor() { return 0; }
}  // namespace DeviceCatalog
