<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en" sourcelanguage="zh_CN">
<context>
    <name>AboutDialog</name>
    <message>
        <source>&lt;p&gt;&lt;b&gt;TavroKVM&lt;/b&gt; %1 — KVM-over-USB 设备的桌面控制台。&lt;/p&gt;&lt;p&gt;TavroKVM 按其源代码附带的许可证条款发布；使用、复制与分发须遵守该许可证。本程序不附带任何明示或默示的担保。&lt;/p&gt;&lt;p&gt;本程序使用了以下开源组件，它们各自遵循自己的许可证：&lt;/p&gt;&lt;ul&gt;&lt;li&gt;&lt;a href=&quot;https://www.qt.io/licensing/&quot;&gt;Qt&lt;/a&gt; %2 — GNU LGPL v3&lt;/li&gt;&lt;li&gt;&lt;a href=&quot;https://github.com/stachenov/quazip&quot;&gt;QuaZip&lt;/a&gt; — GNU LGPL v2.1（附静态链接例外）&lt;/li&gt;&lt;li&gt;&lt;a href=&quot;https://gstreamer.freedesktop.org/&quot;&gt;GStreamer&lt;/a&gt; — GNU LGPL v2.1 或更新版本&lt;/li&gt;&lt;li&gt;&lt;a href=&quot;https://libjpeg-turbo.org/&quot;&gt;libjpeg&lt;/a&gt; — IJG 许可证与 BSD 许可证。This software is based in part on the work of the Independent JPEG Group.&lt;/li&gt;&lt;/ul&gt;&lt;p&gt;LGPL 组件以动态库形式使用，可由用户替换为自行构建的版本。&lt;/p&gt;</source>
        <translation>&lt;p&gt;&lt;b&gt;TavroKVM&lt;/b&gt; %1 — the desktop console for a KVM-over-USB box.&lt;/p&gt;&lt;p&gt;TavroKVM is released under the terms of the licence that comes with its source code; using, copying and distributing it are subject to that licence. The program comes with no warranty, express or implied.&lt;/p&gt;&lt;p&gt;The program uses the following open-source components, each under its own licence:&lt;/p&gt;&lt;ul&gt;&lt;li&gt;&lt;a href=&quot;https://www.qt.io/licensing/&quot;&gt;Qt&lt;/a&gt; %2 — GNU LGPL v3&lt;/li&gt;&lt;li&gt;&lt;a href=&quot;https://github.com/stachenov/quazip&quot;&gt;QuaZip&lt;/a&gt; — GNU LGPL v2.1 (with the static linking exception)&lt;/li&gt;&lt;li&gt;&lt;a href=&quot;https://gstreamer.freedesktop.org/&quot;&gt;GStreamer&lt;/a&gt; — GNU LGPL v2.1 or later&lt;/li&gt;&lt;li&gt;&lt;a href=&quot;https://libjpeg-turbo.org/&quot;&gt;libjpeg&lt;/a&gt; — IJG licence and BSD licence. This software is based in part on the work of the Independent JPEG Group.&lt;/li&gt;&lt;/ul&gt;&lt;p&gt;The LGPL components are used as shared libraries, which users may replace with versions they built themselves.&lt;/p&gt;</translation>
    </message>
    <message>
        <source>关于</source>
        <translation>About</translation>
    </message>
    <message>
        <source>有更新</source>
        <translation>update available</translation>
    </message>
</context>
<context>
    <name>CustomMessageBox</name>
    <message>
        <source>确定</source>
        <translation>OK</translation>
    </message>
</context>
<context>
    <name>CustomTitleBar</name>
    <message>
        <source>关闭</source>
        <translation>Close</translation>
    </message>
    <message>
        <source>最小化</source>
        <translation>Minimise</translation>
    </message>
    <message>
        <source>最大化 / 还原</source>
        <translation>Maximise / restore</translation>
    </message>
</context>
<context>
    <name>DeviceList</name>
    <message>
        <source>设备 %1</source>
        <translation>Box %1</translation>
    </message>
</context>
<context>
    <name>DeviceSettingsDialog</name>
    <message>
        <source>1. 视频设备列表</source>
        <translation>1. Video devices</translation>
    </message>
    <message>
        <source>2. 输入音频设备列表</source>
        <translation>2. Audio inputs</translation>
    </message>
    <message>
        <source>3. 串口设备列表</source>
        <translation>3. Serial ports</translation>
    </message>
    <message>
        <source>4. 波特率</source>
        <translation>4. Baud rate</translation>
    </message>
    <message>
        <source>请先连接并选择 UVC 视频设备。</source>
        <translation>Connect and select a UVC video device first.</translation>
    </message>
    <message>
        <source>设备设置</source>
        <translation>Device settings</translation>
    </message>
    <message>
        <source>关闭</source>
        <translation>Close</translation>
    </message>
    <message>
        <source>(未检测到符合 *usb*video* 的 UVC 设备)</source>
        <translation>(no UVC device matching *usb*video* found)</translation>
    </message>
    <message>
        <source>（自动）按 usb*video 与 usb*audio 序号顺序配对（清除手动绑定）</source>
        <translation>(automatic) pair usb*video and usb*audio by their order (clears the manual binding)</translation>
    </message>
    <message>
        <source>(未检测到同时含 usb 与 audio 的输入设备)</source>
        <translation>(no input device with both usb and audio in its name found)</translation>
    </message>
    <message>
        <source>(未检测到符合 TK…CDC 的串口)</source>
        <translation>(no serial port matching TK…CDC found)</translation>
    </message>
    <message>
        <source>已切换视频设备</source>
        <translation>Video device switched</translation>
    </message>
    <message>
        <source>输入音频</source>
        <translation>Audio input</translation>
    </message>
    <message>
        <source>已改为自动配对，监听已立即重挂，请听声确认</source>
        <translation>Switched to automatic pairing; monitoring restarted, listen to check the sound</translation>
    </message>
    <message>
        <source>已保存并立即重挂监听，请听声确认是否为该路输入音频</source>
        <translation>Saved and monitoring restarted; listen to check that this is the right audio input</translation>
    </message>
    <message>
        <source>串口</source>
        <translation>Serial port</translation>
    </message>
    <message>
        <source>无法获取 UART 管理器。</source>
        <translation>The serial link manager is not available.</translation>
    </message>
    <message>
        <source>串口已设为: %1</source>
        <translation>Serial port set to: %1</translation>
    </message>
    <message>
        <source>波特率</source>
        <translation>Baud rate</translation>
    </message>
    <message>
        <source>请先在「串口设备列表」中选择串口。</source>
        <translation>Select a port in &quot;Serial ports&quot; first.</translation>
    </message>
    <message>
        <source>波特率: %1</source>
        <translation>Baud rate: %1</translation>
    </message>
</context>
<context>
    <name>DownloadDialog</name>
    <message>
        <source>下载更新</source>
        <translation>Download update</translation>
    </message>
    <message>
        <source>准备下载…</source>
        <translation>Preparing the download…</translation>
    </message>
    <message>
        <source>查看下载文件</source>
        <translation>Show the downloaded file</translation>
    </message>
    <message>
        <source>正在下载…</source>
        <translation>Downloading…</translation>
    </message>
    <message>
        <source>下载失败：%1</source>
        <translation>Download failed: %1</translation>
    </message>
    <message>
        <source>仅支持 HTTPS 下载地址</source>
        <translation>only HTTPS download addresses are supported</translation>
    </message>
    <message>
        <source>文件名不合法（%1）</source>
        <translation>invalid file name (%1)</translation>
    </message>
    <message>
        <source>无法写入文件：%1</source>
        <translation>Cannot write the file: %1</translation>
    </message>
    <message>
        <source>校验错误，请重新下载</source>
        <translation>Checksum mismatch, please download again</translation>
    </message>
    <message>
        <source>下载完成，校验通过。</source>
        <translation>Download complete, checksum verified.</translation>
    </message>
    <message>
        <source>已取消下载。</source>
        <translation>Download cancelled.</translation>
    </message>
</context>
<context>
    <name>MainWindow</name>
    <message>
        <source>TavroKVM</source>
        <translation>TavroKVM</translation>
    </message>
    <message>
        <source>设备列表</source>
        <translation>Devices</translation>
    </message>
    <message>
        <source>工具</source>
        <translation>Tools</translation>
    </message>
    <message>
        <source>主页</source>
        <translation>Home page</translation>
    </message>
    <message>
        <source>消息</source>
        <translation>Messages</translation>
    </message>
    <message>
        <source>通知</source>
        <translation>Notifications</translation>
    </message>
    <message>
        <source>分组</source>
        <translation>Groups</translation>
    </message>
    <message>
        <source>在线帮助</source>
        <translation>Online help</translation>
    </message>
    <message>
        <source>关于与版本更新</source>
        <translation>About and updates</translation>
    </message>
    <message>
        <source>⌨ 键盘已捕获（Ctrl+Alt+Shift+Esc 释放）</source>
        <translation>⌨ Keyboard captured (Ctrl+Alt+Shift+Esc releases it)</translation>
    </message>
    <message>
        <source>关于</source>
        <translation>About</translation>
    </message>
    <message>
        <source>最小化</source>
        <translation>Minimise</translation>
    </message>
    <message>
        <source>最大化</source>
        <translation>Maximise</translation>
    </message>
    <message>
        <source>关闭</source>
        <translation>Close</translation>
    </message>
    <message>
        <source>设备(&amp;D)</source>
        <translation>&amp;Device</translation>
    </message>
    <message>
        <source>工具(&amp;T)</source>
        <translation>&amp;Tools</translation>
    </message>
    <message>
        <source>显示日志</source>
        <translation>Show logs</translation>
    </message>
    <message>
        <source>此版本未配置主页地址</source>
        <translation>This build has no home page address</translation>
    </message>
    <message>
        <source>此版本未配置在线帮助地址</source>
        <translation>This build has no online help address</translation>
    </message>
    <message>
        <source>通知功能尚未提供</source>
        <translation>Notifications are not available yet</translation>
    </message>
    <message>
        <source>设备分组尚未提供</source>
        <translation>Device groups are not available yet</translation>
    </message>
    <message>
        <source>设备设置…</source>
        <translation>Device settings…</translation>
    </message>
    <message>
        <source>视频设备、输入音频、串口、波特率</source>
        <translation>Video device, audio input, serial port, baud rate</translation>
    </message>
    <message>
        <source>（无可用设备）</source>
        <translation>(no device available)</translation>
    </message>
</context>
<context>
    <name>MessageWidget</name>
    <message>
        <source>清空消息</source>
        <translation>Clear messages</translation>
    </message>
    <message>
        <source>时间</source>
        <translation>Time</translation>
    </message>
    <message>
        <source>内容</source>
        <translation>Message</translation>
    </message>
</context>
<context>
    <name>NewSoftKeyboard</name>
    <message>
        <source>Soft Keyboard</source>
        <translation>Soft Keyboard</translation>
    </message>
</context>
<context>
    <name>NewVersionDialog</name>
    <message>
        <source>新版本</source>
        <translation>New version</translation>
    </message>
    <message>
        <source>文件名</source>
        <translation>File name</translation>
    </message>
    <message>
        <source>更新说明</source>
        <translation>Release notes</translation>
    </message>
    <message>
        <source>下载</source>
        <translation>Download</translation>
    </message>
    <message>
        <source>关闭</source>
        <translation>Close</translation>
    </message>
</context>
<context>
    <name>ParamControlDialog</name>
    <message>
        <source>参数及控制</source>
        <translation>Parameters and control</translation>
    </message>
    <message>
        <source>设备参数</source>
        <translation>Device parameters</translation>
    </message>
    <message>
        <source>鼠标微动</source>
        <translation>Mouse auto-move</translation>
    </message>
    <message>
        <source>光标矫正</source>
        <translation>Cursor correction</translation>
    </message>
    <message>
        <source>测试</source>
        <translation>Test</translation>
    </message>
    <message>
        <source>设备控制</source>
        <translation>Device control</translation>
    </message>
    <message>
        <source>设备重启</source>
        <translation>Restart the box</translation>
    </message>
    <message>
        <source>性能测试</source>
        <translation>Performance test</translation>
    </message>
    <message>
        <source>MPR 测试将循环发送 CH9329 鼠标包：press → release → press2 → release2（%1 Hz）。</source>
        <translation>The MPR test sends CH9329 mouse reports in a loop: press → release → press2 → release2 (%1 Hz).</translation>
    </message>
    <message>
        <source>关闭</source>
        <translation>Close</translation>
    </message>
    <message>
        <source>MPR 测试</source>
        <translation>MPR test</translation>
    </message>
    <message>
        <source>视频未就绪。</source>
        <translation>The video is not ready.</translation>
    </message>
    <message>
        <source>请先连接串口。</source>
        <translation>Connect the serial port first.</translation>
    </message>
    <message>
        <source>串口已断开，测试已停止。</source>
        <translation>The serial port was disconnected; the test stopped.</translation>
    </message>
    <message>
        <source>发送失败，测试已停止。</source>
        <translation>Sending failed; the test stopped.</translation>
    </message>
</context>
<context>
    <name>SerialPanel</name>
    <message>
        <source>内部错误：未绑定视频模块。</source>
        <translation>Internal error: no console view attached.</translation>
    </message>
    <message>
        <source>提示：请先选择 UVC 视频设备，以便关联输入音频与 UART。</source>
        <translation>Hint: select a UVC video device first, so that its audio input and serial port can be linked to it.</translation>
    </message>
    <message>
        <source>输入音频：顺序自动配对</source>
        <translation>Audio input: paired automatically by order</translation>
    </message>
    <message>
        <source>输入音频：已手动绑定 id %1</source>
        <translation>Audio input: bound by hand to id %1</translation>
    </message>
    <message>
        <source>%1。串口：%2，波特率 %3</source>
        <translation>%1. Serial port: %2, baud rate %3</translation>
    </message>
    <message>
        <source>%1。串口未连接，请在「串口设备列表」中选端口。</source>
        <translation>%1. Serial port not connected; pick a port in &quot;Serial ports&quot;.</translation>
    </message>
</context>
<context>
    <name>TavroVideo</name>
    <message>
        <source>需要摄像头权限</source>
        <translation>Camera permission needed</translation>
    </message>
    <message>
        <source>应用需要摄像头权限以显示视频预览和进行视频通话。</source>
        <translation>The application needs camera permission to show the captured picture.</translation>
    </message>
    <message>
        <source>请按照以下步骤授权：

1. 点击下方的「打开系统设置」按钮
2. 在「隐私与安全性」→「相机」中
3. 在列表中找到本应用程序
4. 确保应用程序的权限开关处于启用状态
5. 重启应用程序使权限生效

注意：这是 macOS 系统的安全要求，我们不会滥用此权限。</source>
        <translation>To grant it:

1. Click &quot;Open System Settings&quot; below
2. Go to &quot;Privacy &amp; Security&quot; → &quot;Camera&quot;
3. Find this application in the list
4. Make sure its switch is on
5. Restart the application for the permission to take effect

Note: macOS requires this for security; the permission is used for nothing else.</translation>
    </message>
    <message>
        <source>打开系统设置</source>
        <translation>Open System Settings</translation>
    </message>
    <message>
        <source>稍后设置</source>
        <translation>Later</translation>
    </message>
    <message>
        <source>UART 协议: %1</source>
        <translation>Serial protocol: %1</translation>
    </message>
    <message>
        <source>粘贴已取消 %1</source>
        <translation>Paste cancelled %1</translation>
    </message>
    <message>
        <source>键盘已交还桌面，重新激活窗口后恢复捕获</source>
        <translation>Keyboard given back to the desktop; activate the window again to capture it</translation>
    </message>
    <message>
        <source>需要辅助功能权限</source>
        <translation>Accessibility permission needed</translation>
    </message>
    <message>
        <source>为了捕获 Ctrl+Space 等系统快捷键，应用需要辅助功能权限。</source>
        <translation>To capture system shortcuts such as Ctrl+Space, the application needs accessibility permission.</translation>
    </message>
    <message>
        <source>请按照以下步骤授权：

1. 点击下方的「打开系统偏好设置」按钮
2. 在「隐私与安全性」→「辅助功能」中
3. 点击左下角的锁图标解锁设置
4. 勾选本应用程序以授予权限
5. 重启应用程序使权限生效

注意：这是 macOS 系统的安全要求，我们不会滥用此权限。</source>
        <translation>To grant it:

1. Click &quot;Open System Preferences&quot; below
2. Go to &quot;Privacy &amp; Security&quot; → &quot;Accessibility&quot;
3. Click the lock in the lower left corner to unlock the settings
4. Tick this application to grant the permission
5. Restart the application for the permission to take effect

Note: macOS requires this for security; the permission is used for nothing else.</translation>
    </message>
    <message>
        <source>打开系统偏好设置</source>
        <translation>Open System Preferences</translation>
    </message>
    <message>
        <source>重新检查权限</source>
        <translation>Check again</translation>
    </message>
    <message>
        <source>权限检查</source>
        <translation>Permission check</translation>
    </message>
    <message>
        <source>权限已授予！请重启应用程序使权限生效。</source>
        <translation>Permission granted. Restart the application for it to take effect.</translation>
    </message>
    <message>
        <source>权限尚未授予，请按照说明完成授权。</source>
        <translation>Permission not granted yet; follow the steps to grant it.</translation>
    </message>
    <message>
        <source>光标矫正已开启</source>
        <translation>Cursor correction on</translation>
    </message>
    <message>
        <source>光标矫正已关闭</source>
        <translation>Cursor correction off</translation>
    </message>
    <message>
        <source>保存 check.jpg 失败：当前无可用视频帧</source>
        <translation>Saving check.jpg failed: no video frame available</translation>
    </message>
    <message>
        <source>保存 check.jpg 失败：视频帧尺寸无效</source>
        <translation>Saving check.jpg failed: invalid frame size</translation>
    </message>
    <message>
        <source>保存 check.jpg 失败：%1</source>
        <translation>Saving check.jpg failed: %1</translation>
    </message>
    <message>
        <source>检测区域像素已保存：%1</source>
        <translation>Measured area saved: %1</translation>
    </message>
    <message>
        <source>参数及控制</source>
        <translation>Parameters and control</translation>
    </message>
    <message>
        <source>未选择视频设备。</source>
        <translation>No video device selected.</translation>
    </message>
    <message>
        <source>请先连接串口。</source>
        <translation>Connect the serial port first.</translation>
    </message>
    <message>
        <source>请先选择视频设备。</source>
        <translation>Select a video device first.</translation>
    </message>
    <message>
        <source>设备信息</source>
        <translation>Device information</translation>
    </message>
    <message>
        <source>请先连接串口（可在鼠标设置中选择端口并打开）。</source>
        <translation>Connect the serial port first (pick and open the port in the mouse settings).</translation>
    </message>
    <message>
        <source>发送设备信息查询失败。</source>
        <translation>Sending the device information request failed.</translation>
    </message>
    <message>
        <source>等待设备回复超时，请检查串口连接与固件。</source>
        <translation>The box did not answer in time; check the serial connection and the firmware.</translation>
    </message>
    <message>
        <source>设备信息获取成功</source>
        <translation>Device information received</translation>
    </message>
    <message>
        <source>U盘方向设置失败 (错误码: %1)</source>
        <translation>Switching the USB disk failed (error code: %1)</translation>
    </message>
    <message>
        <source>U盘方向设置成功</source>
        <translation>USB disk switched</translation>
    </message>
    <message>
        <source>U盘切换</source>
        <translation>USB disk switch</translation>
    </message>
    <message>
        <source>U盘方向: Target/目标机 (点击切换为 Host)</source>
        <translation>USB disk: Target (click to switch to Host)</translation>
    </message>
    <message>
        <source>U盘方向: Host/非目标 (点击切换为 Target)</source>
        <translation>USB disk: Host (click to switch to Target)</translation>
    </message>
    <message>
        <source>截图</source>
        <translation>Screenshot</translation>
    </message>
    <message>
        <source>视频未就绪</source>
        <translation>The video is not ready</translation>
    </message>
    <message>
        <source>没有可用的视频帧</source>
        <translation>No video frame available</translation>
    </message>
    <message>
        <source>视频帧转换为图像失败</source>
        <translation>Converting the video frame to an image failed</translation>
    </message>
    <message>
        <source>保存截图</source>
        <translation>Save screenshot</translation>
    </message>
    <message>
        <source>PNG 图像 (*.png);;所有文件 (*.*)</source>
        <translation>PNG images (*.png);;All files (*.*)</translation>
    </message>
    <message>
        <source>图片已保存</source>
        <translation>Picture saved</translation>
    </message>
    <message>
        <source>无法保存图像到: %1</source>
        <translation>Cannot save the picture to: %1</translation>
    </message>
    <message>
        <source>录屏</source>
        <translation>Record screen</translation>
    </message>
    <message>
        <source>停止录屏？</source>
        <translation>Stop recording?</translation>
    </message>
    <message>
        <source>确定结束当前录制并保存文件吗？</source>
        <translation>End the current recording and save the file?</translation>
    </message>
    <message>
        <source>停止录屏</source>
        <translation>Stop recording</translation>
    </message>
    <message>
        <source>录制达到系统限制，已停止。请确认。</source>
        <translation>The recording reached a system limit and stopped.</translation>
    </message>
    <message>
        <source>录制内容为空</source>
        <translation>The recording is empty</translation>
    </message>
    <message>
        <source>录制错误: %1</source>
        <translation>Recording error: %1</translation>
    </message>
    <message>
        <source>保存录屏</source>
        <translation>Save recording</translation>
    </message>
    <message>
        <source>视频 (*.mp4 *.mkv *.webm);;所有文件 (*.*)</source>
        <translation>Videos (*.mp4 *.mkv *.webm);;All files (*.*)</translation>
    </message>
    <message>
        <source>视频已保存</source>
        <translation>Video saved</translation>
    </message>
    <message>
        <source>保存文件失败</source>
        <translation>Saving the file failed</translation>
    </message>
    <message>
        <source>拖动工具栏</source>
        <translation>Drag the toolbar</translation>
    </message>
    <message>
        <source>设备设置：视频设备、串口、波特率等</source>
        <translation>Device settings: video device, serial port, baud rate and more</translation>
    </message>
    <message>
        <source>软键盘</source>
        <translation>Soft keyboard</translation>
    </message>
    <message>
        <source>粘贴：把剪贴板文本键入目标机 (Ctrl+Alt+V)</source>
        <translation>Paste: type the clipboard text on the target (Ctrl+Alt+V)</translation>
    </message>
    <message>
        <source>鼠标控制</source>
        <translation>Mouse and serial settings</translation>
    </message>
    <message>
        <source>信息</source>
        <translation>Information</translation>
    </message>
    <message>
        <source>多窗口</source>
        <translation>Multiple windows</translation>
    </message>
    <message>
        <source>全屏</source>
        <translation>Full screen</translation>
    </message>
    <message>
        <source>以太网</source>
        <translation>Ethernet</translation>
    </message>
    <message>
        <source>以太网相关功能将在后续版本中提供。</source>
        <translation>Ethernet functions will come in a later version.</translation>
    </message>
    <message>
        <source>无线网络相关功能将在后续版本中提供。</source>
        <translation>Wireless network functions will come in a later version.</translation>
    </message>
    <message>
        <source>磁盘</source>
        <translation>Disk</translation>
    </message>
    <message>
        <source>磁盘扩展相关功能将在后续版本中提供。</source>
        <translation>Disk extension functions will come in a later version.</translation>
    </message>
    <message>
        <source>鼠标宏</source>
        <translation>Mouse macros</translation>
    </message>
    <message>
        <source>鼠标点击宏功能将在后续版本中提供。</source>
        <translation>Mouse click macros will come in a later version.</translation>
    </message>
    <message>
        <source>隐藏工具栏</source>
        <translation>Hide the toolbar</translation>
    </message>
    <message>
        <source>拖动可移动；点击显示或隐藏工具栏</source>
        <translation>Drag to move; click to show or hide the toolbar</translation>
    </message>
</context>
<context>
    <name>TavroVideoPreview</name>
    <message>
        <source>双击画面可切换到主画布全屏显示</source>
        <translation>Double-click the picture to show it in the main view</translation>
    </message>
    <message>
        <source>主画面占用该设备</source>
        <translation>Shown in the main view</translation>
    </message>
</context>
<context>
    <name>TkProtocol</name>
    <message>
        <source>(无数据)</source>
        <translation>(no data)</translation>
    </message>
    <message>
        <source>(无效)</source>
        <translation>(invalid)</translation>
    </message>
    <message>
        <source>未知</source>
        <translation>unknown</translation>
    </message>
    <message>
        <source>相对坐标</source>
        <translation>relative</translation>
    </message>
    <message>
        <source>绝对坐标</source>
        <translation>absolute</translation>
    </message>
    <message>
        <source>向上</source>
        <translation>up</translation>
    </message>
    <message>
        <source>向下</source>
        <translation>down</translation>
    </message>
    <message>
        <source>未知(0)</source>
        <translation>unknown (0)</translation>
    </message>
    <message>
        <source>Target/目标机</source>
        <translation>Target</translation>
    </message>
    <message>
        <source>Host/主机</source>
        <translation>Host</translation>
    </message>
    <message>
        <source>启用</source>
        <translation>on</translation>
    </message>
    <message>
        <source>禁用</source>
        <translation>off</translation>
    </message>
    <message>
        <source>更新时间: %1</source>
        <translation>Updated: %1</translation>
    </message>
    <message>
        <source>序列号(hex): %1</source>
        <translation>Serial number (hex): %1</translation>
    </message>
    <message>
        <source>固件版本: %1 (原始值: %2)</source>
        <translation>Firmware version: %1 (raw: %2)</translation>
    </message>
    <message>
        <source>硬件版本: %1 (原始值: %2)</source>
        <translation>Hardware version: %1 (raw: %2)</translation>
    </message>
    <message>
        <source>Bootloader版本: %1 (原始值: %2)</source>
        <translation>Bootloader version: %1 (raw: %2)</translation>
    </message>
    <message>
        <source>MCU温度: %1°C (原始值: %2)</source>
        <translation>MCU temperature: %1°C (raw: %2)</translation>
    </message>
    <message>
        <source>鼠标: 模式=%1 (%2), 滚轮方向=%3 (%4), 灵敏度=%5</source>
        <translation>Mouse: mode=%1 (%2), wheel direction=%3 (%4), sensitivity=%5</translation>
    </message>
    <message>
        <source>U盘方向: %1 (%2)</source>
        <translation>USB disk: %1 (%2)</translation>
    </message>
    <message>
        <source>USB(目标): 波特率=%1, VID=%2, PID=%3</source>
        <translation>USB (target): baud rate=%1, VID=%2, PID=%3</translation>
    </message>
    <message>
        <source>USB(主机): 波特率=%1, VID=%2, PID=%3</source>
        <translation>USB (host): baud rate=%1, VID=%2, PID=%3</translation>
    </message>
    <message>
        <source>运行状态: %1 (原始值: %2)</source>
        <translation>Run state: %1 (raw: %2)</translation>
    </message>
    <message>
        <source>编译时间: %1</source>
        <translation>Build time: %1</translation>
    </message>
    <message>
        <source>鼠标微动: %1 (%2)</source>
        <translation>Mouse auto-move: %1 (%2)</translation>
    </message>
    <message>
        <source>UVM32: app数=%1, 总大小=%2, CRC=0x%3</source>
        <translation>UVM32: apps=%1, total size=%2, CRC=0x%3</translation>
    </message>
    <message>
        <source>原始数据长度: %1 字节</source>
        <translation>Raw data length: %1 bytes</translation>
    </message>
</context>
<context>
    <name>device</name>
    <message>
        <source>设备</source>
        <translation>Devices</translation>
    </message>
    <message>
        <source>添加设备</source>
        <translation>Add a box</translation>
    </message>
    <message>
        <source>搜索设备</source>
        <translation>Search boxes</translation>
    </message>
    <message>
        <source>刷新设备列表</source>
        <translation>Refresh the list</translation>
    </message>
    <message>
        <source>收起或展开设备列表</source>
        <translation>Collapse or expand the list</translation>
    </message>
    <message>
        <source>多机同显</source>
        <translation>Show all boxes</translation>
    </message>
    <message>
        <source>删除设备</source>
        <translation>Remove a box</translation>
    </message>
    <message>
        <source>重启后生效</source>
        <translation>Takes effect after a restart</translation>
    </message>
    <message>
        <source>插入盒子后自动出现在列表中</source>
        <translation>A box appears in the list by itself when plugged in</translation>
    </message>
    <message>
        <source>拔下盒子后自动从列表中移除</source>
        <translation>A box leaves the list by itself when unplugged</translation>
    </message>
</context>
<context>
    <name>logMng</name>
    <message>
        <source>Export to zip</source>
        <translation>Export to zip</translation>
    </message>
    <message>
        <source>Upload to tavrokvm</source>
        <translation>Upload to tavrokvm</translation>
    </message>
    <message>
        <source>New a ticket</source>
        <translation>New a ticket</translation>
    </message>
    <message>
        <source>序号</source>
        <translation>No.</translation>
    </message>
    <message>
        <source>文件大小</source>
        <translation>Size</translation>
    </message>
    <message>
        <source>文件名</source>
        <translation>File name</translation>
    </message>
    <message>
        <source>完整路径</source>
        <translation>Full path</translation>
    </message>
    <message>
        <source>导出失败</source>
        <translation>Export failed</translation>
    </message>
    <message>
        <source>没有可导出的日志文件！</source>
        <translation>There are no log files to export.</translation>
    </message>
    <message>
        <source>无法创建 zip 文件！</source>
        <translation>Cannot create the zip file.</translation>
    </message>
    <message>
        <source>导出成功</source>
        <translation>Export done</translation>
    </message>
    <message>
        <source>日志已成功导出为 zip 文件！</source>
        <translation>The logs were exported as a zip file.</translation>
    </message>
    <message>
        <source>保存日志压缩包</source>
        <translation>Save the log archive</translation>
    </message>
</context>
<context>
    <name>mouse</name>
    <message>
        <source>target layout</source>
        <translation>target layout</translation>
    </message>
    <message>
        <source>unpaced</source>
        <translation>unpaced</translation>
    </message>
    <message>
        <source>Time between the keyboard reports of a paste; a target that reads its keyboard every 8 ms needs at least 8</source>
        <translation>Time between the keyboard reports of a paste; a target that reads its keyboard every 8 ms needs at least 8</translation>
    </message>
    <message>
        <source>paste interval</source>
        <translation>paste interval</translation>
    </message>
    <message>
        <source>Mouse Control</source>
        <translation>Mouse Control</translation>
    </message>
    <message>
        <source>Refresh</source>
        <translation>Refresh</translation>
    </message>
    <message>
        <source>Port</source>
        <translation>Port</translation>
    </message>
    <message>
        <source>Baud rate</source>
        <translation>Baud rate</translation>
    </message>
    <message>
        <source>protocol</source>
        <translation>protocol</translation>
    </message>
    <message>
        <source>coord mode</source>
        <translation>coord mode</translation>
    </message>
</context>
<context>
    <name>tools</name>
    <message>
        <source>Tool</source>
        <translation>Tool</translation>
    </message>
    <message>
        <source>Log</source>
        <translation>Log</translation>
    </message>
</context>
</TS>
