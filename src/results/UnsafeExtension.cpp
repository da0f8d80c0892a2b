#include "src/results/UnsafeExtension.h"

namespace results {

bool HasUnsafeExtension(std::u16string_view name) {
    constexpr std::u16string_view unsafe =
        u".ad.adp.asp.bas.bat.chm.cmd.com.cpl.exe.hlp.hta.inf.ins.isp.js.jse.lnk.mdb.mde.msc.msi.msp.mst.pcd.pif.reg."
        u"scr"
        u".sct.shb.shs.url.vb.vbe.vbs.vsd.vss.vst.vsw.ws.wsc.wsf.wsh";
    constexpr std::size_t length = 4;
    auto end = name.substr(name.size() > length ? name.size() - length : 0);
    if (!end.empty() && end.front() != u'.') end.remove_prefix(1);
    return !end.empty() && unsafe.find(end) != unsafe.npos;
}

}  // namespace results
