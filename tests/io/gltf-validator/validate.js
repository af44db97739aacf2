// Prints the errors and warnings of glTF files; ends with 1 where there are errors.
// Usage: node validate.js FILE...

const fs = require('fs');
const validator = require('gltf-validator');

// The samples come without the textures that they name.
const isMissingTexture = (message) => message.code === 'IO_ERROR' && message.pointer.startsWith('/images/');

async function check(file) {
  const report = await validator.validateBytes(new Uint8Array(fs.readFileSync(file)), { maxIssues: 0 });
  const told = report.issues.messages.filter((message) => message.severity < 2 && !isMissingTexture(message));
  for (const message of told.slice(0, 5)) console.log(`${file}: ${message.code} ${message.pointer}: ${message.message}`);
  return { errors: told.filter((message) => message.severity === 0).length, warnings: told.length,
           triangles: report.info.totalTriangleCount };
}

(async () => {
  const reports = await Promise.all(process.argv.slice(2).map(check));
  const sum = (key) => reports.reduce((total, report) => total + report[key], 0);
  console.log(`${reports.length} files, ${sum('triangles')} triangles, ${sum('errors')} errors, ` +
              `${sum('warnings') - sum('errors')} warnings`);
  process.exitCode = sum('errors') > 0 || reports.length === 0 ? 1 : 0;
})();
