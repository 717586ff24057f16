#include "machine/transport.h"

#include "machine/text.h"

#include <fcntl.h>

namespace kivclaim::machine {

bool TransportReader::has(const std::string& name) const
{
    return tree.open(Top::sys, name, O_PATH).isOpen();
}

std::string TransportReader::attribute(const std::string& name)
{
    const Descriptor file = tree.open(Top::sys, name, O_RDONLY);
    Marks ignored = noMark;
    return file.isOpen() ? std::string(trimmed(files.content(file.get(), longestAttribute, ignored))) : std::string();
}

const TransportReader::Host& TransportReader::hostOf(std::string_view number)
{
    const auto known = hosts.find(number);
    if (known != hosts.end()) {
        return known->second;
    }
    Host& host = hosts[std::string(number)];
    const std::string name = "/host" + std::string(number);
    if (has("class/spi_host" + name)) {
        host.first = "spi";
    } else if (has("class/fc_host" + name)) {
        const bool ethernet = attribute("class/fc_host" + name + "/symbolic_name").find(" over ") != std::string::npos;
        host.first = ethernet ? "fcoe" : "fc";
    } else if (has("class/sas_host" + name)) {
        host.first = "sas";
    }
    host.iscsi = has("class/iscsi_host" + name);
    const std::string driver = attribute("class/scsi_host" + name + "/proc_name");
    if (driver == "ahci" || driver == "sata") {
        host.last = "sata";
    } else if (driver.find("ata") != std::string::npos) {
        host.last = "ata";
    }
    return host;
}

std::string_view TransportReader::ofScsi(const Device& device, std::string_view place)
{
    const Host& host = hostOf(device.scsiAddress.substr(0, device.scsiAddress.find(':')));
    if (!host.first.empty()) {
        return host.first;
    }
    const std::string disk = "bus/scsi/devices/" + std::string(device.scsiAddress);
    if (has(disk + "/sas_device")) {
        return "sas";
    }
    if (has(disk + "/ieee1394_id")) {
        return "sbp";
    }
    if (host.iscsi) {
        return "iscsi";
    }
    return place.find("usb") != std::string_view::npos ? "usb" : host.last;
}

std::string_view TransportReader::of(const Device& device, std::string_view place)
{
    if (!device.scsiAddress.empty()) {
        return ofScsi(device, place);
    }
    if (beginsWith(device.kernelName, "nvme")) {
        return "nvme";
    }
    if (beginsWith(device.kernelName, "vd")) {
        return "virtio";
    }
    return beginsWith(device.kernelName, "mmcblk") ? "mmc" : "";
}

}  // namespace kivclaim::machine
